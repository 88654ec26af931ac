#pragma once

#include "velk/Descriptor.h"

#include "bus/BusNode.h"
#include "bus/FaultInjector.h"
#include "bus/Pace.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/types.h>

/// A CAN bus for machines without one: a Unix socket where each connection is a node. It carries every
/// frame of a node to all others, in the same order for all. Nodes that wait to send take turns.
///
/// The bus never waits for a node. Each node has a queue of limited length. If it is full, frames for the
/// node are dropped and counted, as a real controller does. A node that ends does not affect the others.
///
/// The thread of the bus inherits the signal mask of the thread that constructs it. All operations may be
/// called from any thread. Only stop() and the destructor block: they wait for the observer to return.
class VirtualBus {
public:
    /// What happened to a frame. A duplicate follows its original; a stray frame has the id of the frame
    /// before it.
    enum class Fate { carried, dropped, duplicate, stray };

    struct Options {
        mode_t mode = 0600; ///< Permissions of the socket.
        /// Bits per second; 0: as fast as possible. A frame of 8 data bytes takes 125 bits (see
        /// Pace::bitsOfFrame). It reaches the others when its last bit has passed, or later.
        unsigned long bitrate = 0;
        /// How many frames may wait for one node, besides those in its socket.
        std::size_t queueLength = 1024;
        FaultRates faults{};
        /// Receives each frame in the order of the bus. Called on the bus thread, which waits until it
        /// returns. Must not throw and must not call stop().
        std::function<void(const CANFrame&, Fate)> observer{};
    };

    struct Counters {
        std::uint64_t carried = 0; ///< Frames of nodes that were carried.
        /// Frames that were sent to a node or queued for it, counted once for each node.
        std::uint64_t delivered = 0;
        std::uint64_t overflowDrops = 0;
        std::uint64_t faultDrops = 0;
        std::uint64_t duplicates = 0;
        std::uint64_t strays = 0;
        /// Records that are not classic frames, and runs of other bytes.
        std::uint64_t unreadable = 0;
        std::uint64_t nodes = 0; ///< Connections so far.
    };

    /// Creates the socket. Replaces the socket of a bus that has died.
    /// @throws VelkException if the socket cannot be created.
    VirtualBus(std::string socketPath, Options busOptions);
    /// Stops the bus and removes the socket.
    ~VirtualBus();
    VirtualBus(const VirtualBus&) = delete;
    VirtualBus& operator=(const VirtualBus&) = delete;

    /// Ends the bus thread and all connections. A second call does nothing.
    void stop();

    /// @return the counts at the time when the bus thread last started to wait.
    Counters counters() const;

private:
    struct Transmission {
        CANFrame frame;
        std::uint64_t sender; ///< The number of its node.
        Fate fate;
    };

    enum class Left { none, some }; ///< Whether more frames could be carried at once.

    void listen();
    void run();
    void accept();
    Left carryFrames();
    void carryAtPace();
    std::optional<Transmission> nextTransmission();
    std::optional<Transmission> nextFrame();
    void planFaults(const Transmission& original);
    void carry(const Transmission& transmission);
    void count(Fate fate);
    void forgetTheDead();
    void publish();
    void waitForEvents(Left left);

    const std::string path;
    const Options options;
    const Descriptor quit; ///< Becomes readable with stop().
    const Descriptor listener;

    // Used by the bus thread alone.
    std::vector<std::unique_ptr<BusNode>> nodes;
    std::vector<pollfd> waits; ///< For stop(), the listener, the nodes.
    FaultInjector injector;
    std::deque<Transmission> planned;   ///< Carried before the next frame of a node.
    std::optional<Transmission> onWire; ///< On a paced bus only.
    Pace::Clock::time_point freeAt{};   ///< When `onWire` has passed.
    std::size_t turn = 0;               ///< The node that may send next.
    std::vector<unsigned char> scratch; ///< The record of the current frame.
    Counters totals;

    mutable std::mutex mutex; ///< Guards `published`.
    Counters published;

    std::thread thread;
};
