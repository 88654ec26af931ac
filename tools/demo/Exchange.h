#pragma once

#include "bus/VirtualBus.h"
#include "demo/Console.h"
#include "demo/DemoEndpoint.h"
#include "demo/DemoOptions.h"
#include "demo/Direction.h"
#include "demo/NibbleFile.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <poll.h>

/// What an exchange has come to.
struct ExchangeResult {
    bool whole = false;
    std::string failure; ///< Why it is not whole; empty if it was interrupted.
    std::chrono::duration<double> time{};
    Direction::Counters directions; ///< Of all directions together.
    std::uint64_t repeats = 0;
    std::size_t bytes = 0;
    std::uint64_t starts = 0; ///< First and single frames of the endpoints on the bus.
    std::map<DemoEndpoint::Status, std::uint64_t> statusChanges;
    VirtualBus::Counters bus;

    /// Attempts of the endpoints beyond one for each request.
    std::uint64_t retries() const
    {
        return starts > directions.requests ? starts - directions.requests : 0;
    }
};

/// The file on its way in all directions at once: all pairs of endpoints on one bus.
class Exchange {
public:
    Exchange(const DemoOptions& demoOptions, const std::vector<unsigned char>& fileBytes,
             Console& demoConsole);

    /// Transfers the file, on the calling thread, until it has arrived everywhere, or something is
    /// wrong, or the wake-up of interruptions comes.
    ExchangeResult run(const WakeUp& interruption);

private:
    struct Side {
        std::unique_ptr<DemoEndpoint> endpoint;
        std::unique_ptr<Direction> outgoing;
        Direction* incoming = nullptr;
    };

    void addDirection(std::size_t from, std::size_t to);
    void observe(const CANFrame& frame, VirtualBus::Fate fate);
    bool turn();
    void waitForEvents();
    void takeArrivals();
    void takeStatusChanges(Side& side);
    void printLadder();
    void checkStandstill(Direction::Clock::time_point now);
    std::size_t nibblesArrived() const;
    ExchangeResult result(std::chrono::duration<double> time) const;

    const DemoOptions& options;
    Console& console;
    const NibbleFile file;
    std::atomic<std::uint64_t> starts{0};
    WakeUp wake;
    VirtualBus bus;
    std::vector<Side> sides; ///< Two for each pair; behind the bus, so that they go first.
    std::vector<pollfd> waits;
    std::string failure;
    bool interrupted = false;
    std::size_t lastNibbles = 0;
    Direction::Clock::time_point lastArrival{};
    std::map<DemoEndpoint::Status, std::uint64_t> statusChanges;
    std::mutex ladderMutex;
    std::vector<std::string>
        ladder; ///< Lines of the bus thread that wait to be printed. [ladderMutex]
};
