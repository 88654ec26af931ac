#pragma once

#include "bus/BusNode.h"
#include "bus/FaultInjector.h"
#include "bus/Pace.h"
#include "bus/WakeUp.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>

/// A CAN bus inside of the process: carries every frame of an endpoint to all others whose filter
/// accepts it, in one order that is the same for all. Endpoints that wait to send take turns.
///
/// It never waits for an endpoint. Each has a queue of bounded length; a frame for a full one is
/// dropped and counted, as by a real controller. The bus is the one writer of each endpoint's input
/// pipe, requests of its client included (see request()): a record of more than `PIPE_BUF` bytes
/// is no atomic write, so two writers could mix theirs.
///
/// All operations but the destructor may be called from any thread, and none of them blocks for
/// longer than a moment, apart from stop(), which waits for the observer to return.
///
/// Endpoints and bus may be stopped, and endpoints destroyed, in any order. The bus owns the
/// descriptors that it gives out and closes them when it is destroyed, so an endpoint that outlives
/// it has to be stopped by then: the number may soon belong to some other file.
class VirtualBus {
public:
    /// What has become of a frame. A duplicate comes right behind its original; a stray frame bears
    /// the id of the frame in front of it.
    enum class Fate { carried, dropped, duplicate, stray };

    struct Options {
        /// Bits per second; 0: as fast as it goes. A frame of 8 data bytes takes the bus for 125
        /// bits (see Pace::bitsOfFrame) and reaches the others no earlier than at its end.
        unsigned long bitrate = 0;
        std::size_t queueLength = 1024; ///< Frames that wait for one endpoint.
        Faults faults;
        /// Hears of each frame in the order of the bus, on the bus thread, which stands still
        /// meanwhile. Must not throw and must not call stop().
        std::function<void(const CANFrame&, Fate)> observer;
    };

    struct Attachment {
        std::size_t node;    ///< For request() and the counters; counts from 0.
        int proxyDescriptor; ///< For CANTransportThread::setConnection(); owned by the bus.
    };

    struct Counters {
        std::uint64_t carried = 0; ///< Frames of endpoints that were carried.
        std::uint64_t delivered = 0;
        std::uint64_t overflowDrops = 0;
        std::uint64_t faultDrops = 0;
        std::uint64_t duplicates = 0;
        std::uint64_t strays = 0;
        std::uint64_t unreadable = 0; ///< Runs of bytes and records that are no classic frame.
        std::vector<NodeCounters> nodes;
    };

    /// @throws VelkException if a descriptor cannot be had.
    VirtualBus();
    explicit VirtualBus(Options busOptions);
    /// Stops the bus.
    ~VirtualBus();
    VirtualBus(const VirtualBus&) = delete;
    VirtualBus& operator=(const VirtualBus&) = delete;

    /// Adds an endpoint, before or after start(). @param inputDescriptor the write end of its input
    /// pipe, as CANTransportThread::open() gives it out.
    /// @throws VelkException if a descriptor cannot be had.
    Attachment attach(int inputDescriptor, AcceptanceFilter filter);

    /// Queues a client's serialised request for the node's endpoint, behind the frames that wait
    /// for it. It is written whole and never dropped, unless the endpoint has gone; requests for an
    /// endpoint that does not read pile up.
    void request(std::size_t node, std::vector<unsigned char> record);

    /// Starts the bus thread, which runs with all signals blocked. May follow a stop().
    void start();
    /// Ends the bus thread. What is queued stays queued.
    void stop();

    /// How things stood when the bus thread last went to wait.
    Counters counters() const;

private:
    struct Transmission {
        CANFrame frame;
        std::size_t sender;
        Fate fate;
    };

    void run();
    bool takeOrders();
    void readSenders();
    void carryFrames();
    void carryAtPace();
    std::optional<Transmission> nextTransmission();
    std::optional<Transmission> nextFrame();
    void planFaults(const Transmission& original);
    void carry(const Transmission& transmission);
    void count(Fate fate);
    void flushQueues();
    void publish();
    void waitForEvents();

    const Options options;
    const WakeUp wake;

    // The bus thread's own.
    std::vector<std::unique_ptr<BusNode>> nodes;
    std::vector<pollfd> waits; ///< The wake-up, then two for each node: its source, its target.
    FaultInjector injector;
    std::deque<Transmission> planned;   ///< What comes before the next frame of an endpoint.
    std::optional<Transmission> onWire; ///< Of a paced bus.
    Pace::Clock::time_point freeAt{};   ///< When `onWire` has passed.
    std::size_t turn = 0;               ///< The node that may send next.
    std::vector<unsigned char> scratch; ///< The record of the frame that is carried.
    Counters totals;

    // Guarded by the mutex.
    mutable std::mutex mutex;
    std::vector<std::unique_ptr<BusNode>> arrivals;
    std::vector<std::pair<std::size_t, std::vector<unsigned char>>> requests;
    Counters published;
    bool stopping = false;

    std::mutex lifecycle; ///< Serialises start() and stop(); guards the thread.
    std::thread thread;
};
