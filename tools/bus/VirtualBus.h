#pragma once

#include "bus/BusNode.h"
#include "bus/FaultInjector.h"
#include "bus/Pace.h"

#include "velk/Descriptor.h"

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
/// frame of a node to all others, in one order that is the same for all. Nodes that wait to send take
/// turns.
///
/// It never waits for a node. Each has a queue of bounded length; a frame for a full one is dropped and
/// counted, as by a real controller. A node that ends harms no other.
///
/// Its thread inherits the signal mask of the one that constructs it. All operations may be called from
/// any thread, and none blocks for longer than a moment, apart from
/// stop() and the destructor, which wait for the observer to return.
class VirtualBus {
public:
    /// What has become of a frame. A duplicate comes right behind its original; a stray frame bears
    /// the id of the frame in front of it.
    enum class Fate { carried, dropped, duplicate, stray };

    struct Options {
        mode_t mode = 0600; ///< Of the socket.
        /// Bits per second; 0: as fast as it goes. A frame of 8 data bytes takes the bus for 125
        /// bits (see Pace::bitsOfFrame) and reaches the others no earlier than at its end.
        unsigned long bitrate = 0;
        std::size_t queueLength = 1024; ///< Frames that wait for one node, in front of its socket.
        Faults faults{};
        /// Hears of each frame in the order of the bus, on the bus thread, which stands still
        /// meanwhile. Must not throw and must not call stop().
        std::function<void(const CANFrame&, Fate)> observer{};
    };

    struct Counters {
        std::uint64_t carried = 0;   ///< Frames of nodes that were carried.
        std::uint64_t delivered = 0; ///< Copies that were sent or queued.
        std::uint64_t overflowDrops = 0;
        std::uint64_t faultDrops = 0;
        std::uint64_t duplicates = 0;
        std::uint64_t strays = 0;
        std::uint64_t unreadable = 0; ///< Runs of bytes and records that are no classic frame.
        std::uint64_t nodes = 0;      ///< Connections so far.
    };

    /// Makes the socket; a stale one of a bus that has died is replaced.
    /// @throws VelkException if the socket cannot be had.
    VirtualBus(std::string socketPath, Options busOptions);
    /// Stops the bus and removes the socket.
    ~VirtualBus();
    VirtualBus(const VirtualBus&) = delete;
    VirtualBus& operator=(const VirtualBus&) = delete;

    /// Ends the bus thread and all connections. Only once.
    void stop();

    /// How things stood when the bus thread last went to wait.
    Counters counters() const;

private:
    struct Transmission {
        CANFrame frame;
        std::uint64_t sender; ///< The number of its node.
        Fate fate;
    };

    enum class Left { none, some }; ///< Of what can be carried at once.

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

    // The bus thread's own.
    std::vector<std::unique_ptr<BusNode>> nodes;
    std::vector<pollfd> waits; ///< stop(), the listener, the nodes.
    FaultInjector injector;
    std::deque<Transmission> planned;   ///< What comes before the next frame of a node.
    std::optional<Transmission> onWire; ///< Of a paced bus.
    Pace::Clock::time_point freeAt{};   ///< When `onWire` has passed.
    std::size_t turn = 0;               ///< The node that may send next.
    std::vector<unsigned char> scratch; ///< The record of the frame that is carried.
    Counters totals;

    mutable std::mutex mutex; ///< Guards what is published.
    Counters published;

    std::thread thread;
};
