// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Descriptor.h"

#include "bus/BusCounters.h"
#include "bus/BusNode.h"
#include "bus/BusSocket.h"
#include "bus/FaultInjector.h"
#include "bus/FrameRing.h"
#include "bus/Pace.h"
#include "bus/PacketBatch.h"
#include "bus/Rest.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <sys/types.h>

/// A CAN bus for machines without one: a Unix socket where each connection is a node. It carries every
/// frame of a node to all others, in the same order for all. Nodes that wait to send take turns, with a
/// limited number of frames each; a node that floods the bus rests while others send.
///
/// The bus never waits for a node. The last frames are kept for nodes that read slowly. A node that is slower
/// misses the oldest of them, which is counted, as a real controller does. A node that ends does not affect
/// the others. After the constructor, memory is allocated for a new connection only: if there is none, the
/// connection is refused.
///
/// The thread of the bus inherits the signal mask of the thread that constructs it. All operations may be
/// called from any thread. Only stop() and the destructor block: they wait for the observer to return.
class VirtualBus {
public:
    /// What happened to a frame. A duplicate follows its original; a stray frame has the id of the frame
    /// before it.
    enum class Fate { carried, dropped, duplicate, stray };

    using Counters = BusCounters;

    struct Options {
        mode_t mode = 0600; ///< Permissions of the socket.
        /// Bits per second; 0: as fast as possible. A frame of 8 data bytes takes 125 bits (see
        /// Pace::bitsOfFrame). It reaches the others when its last bit has passed, or later.
        unsigned long bitrate = 0;
        /// How many frames the bus keeps at least for nodes that read slowly, besides those in their sockets.
        std::size_t queueLength = 1024;
        FaultRates faults{};
        /// Receives each frame in the order of the bus. Called on the bus thread, which waits until it
        /// returns. Must not throw and must not call stop().
        std::function<void(const CANFrame&, Fate)> observer{};
        std::size_t nodes = 64; ///< Connections at one time; more are refused.
    };

    /// Creates the socket. Replaces the socket of a bus that has died.
    /// @throws VelkException if the socket cannot be created, or another bus has it.
    VirtualBus(std::string socketPath, Options busOptions);
    /// Stops the bus and removes the socket.
    ~VirtualBus();
    VirtualBus(const VirtualBus&) = delete;
    VirtualBus& operator=(const VirtualBus&) = delete;

    /// Ends the bus thread and all connections, and removes the socket. A second call does nothing.
    void stop();

    /// @return the counts at the time when the bus thread last started to wait.
    Counters counters() const;
    /// @return a descriptor that becomes readable when the bus has left something out: see
    /// BusCounters::refusals(). Reading its 8 bytes makes it unreadable again.
    int refusals() const { return refused.get(); }

    /// @return how many frames the bus takes from a node in each turn: the more nodes get them, the fewer.
    static std::size_t framesInATurn(std::size_t nodes);

private:
    struct Transmission {
        CANFrame frame;
        std::uint64_t sender; ///< The number of its node.
        Fate fate;
    };
    /// A frame with its faults, in the order of the bus.
    struct Plan {
        Transmission parts[3]{};
        std::size_t count = 0;
        std::size_t taken = 0;
    };
    using Clock = Pace::Clock;

    void run();
    void accept();
    void carryRound();
    void takeTurn(BusNode& node, std::size_t most);
    void carryAtPace();
    std::optional<Transmission> nextTransmission();
    bool planNextFrame();
    void plan(const CANFrame& frame, std::uint64_t sender);
    void carry(const Transmission& transmission);
    void count(Fate fate);
    void deliver();
    void forgetTheDead();
    void publish();
    void waitForEvents();
    void updateInterest();
    void watch(int descriptor, std::uint32_t& watched, std::uint32_t events, void* what) const;
    Clock::time_point nextTime() const;

    const Options options;
    std::optional<BusSocket> listener;
    const Descriptor quit;    ///< Becomes readable with stop().
    const Descriptor refused; ///< Becomes readable with a refusal.
    const Descriptor poller;

    // Used by the bus thread alone.
    std::vector<std::unique_ptr<BusNode>> nodes;
    FrameRing ring;
    std::uint64_t delivered =
        0; ///< The position in the ring up to which the nodes have been served.
    PacketBatch incoming;
    PacketBatch outgoing;
    FaultInjector injector;
    Plan planned;                       ///< Carried before the next frame of a node.
    std::optional<Transmission> onWire; ///< On a paced bus only.
    Clock::time_point freeAt{};         ///< When `onWire` has passed.
    std::size_t turn = 0;               ///< The node that may send next.
    Clock::time_point acceptsAt{};      ///< Without room for a connection, not before.
    std::uint32_t listening = 0;        ///< The events of the listener that are waited for.
    Rest rest;
    bool stopped = false;
    Clock::time_point now{}; ///< When this round began.
    Counters totals;

    mutable std::mutex mutex; ///< Guards `published`.
    Counters published;

    std::thread thread;
};
