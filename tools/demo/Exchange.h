// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportClient.h"

#include "bus/VirtualBus.h"
#include "common/ProgressBar.h"
#include "common/Signals.h"
#include "demo/DemoOptions.h"
#include "demo/Direction.h"
#include "demo/NibbleFile.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// The result of an exchange.
struct ExchangeResult {
    bool whole = false;
    std::string failure; ///< Why it is not whole; empty if it is whole or was interrupted.
    int signal = 0;      ///< That interrupted it; 0 for none.
    std::chrono::duration<double> time{};
    Direction::Counters directions; ///< Sum of all directions.
    std::uint64_t starts = 0;       ///< First and single frames of the endpoints on the bus.
    std::map<CANTransportClient::Status, std::uint64_t> statusChanges;
    VirtualBus::Counters bus;

    /// @return attempts of the endpoints beyond the first of each request.
    std::uint64_t retries() const
    {
        return starts > directions.requests ? starts - directions.requests : 0;
    }
};

/// Transfers the file in all directions at once, with all pairs of clients on one bus.
class Exchange {
public:
    Exchange(const DemoOptions& demoOptions, const std::vector<unsigned char>& fileBytes);

    /// Runs until the file has arrived everywhere, something fails, or a signal arrives.
    /// @return what happened.
    ExchangeResult run(const Signals& signals);

private:
    /// A temporary folder for the socket of the bus.
    struct Folder {
        Folder();
        ~Folder();
        Folder(const Folder&) = delete;
        Folder& operator=(const Folder&) = delete;
        std::filesystem::path path;
    };

    std::unique_ptr<CANTransportClient> makeClient(std::size_t side);
    std::string nameOf(std::size_t side) const;
    void observe(const CANFrame& frame, VirtualBus::Fate fate);
    void note(std::size_t side, CANTransportClient::Status status);
    void printNews();
    bool isStalled(std::size_t nibbles);
    Direction::Counters sum() const;
    void judge(ExchangeResult& result) const;

    const DemoOptions& options;
    ProgressBar bar;
    const NibbleFile file;
    std::size_t lastNibbles = 0;
    std::chrono::steady_clock::time_point lastArrival{};

    std::mutex mutex;
    std::vector<std::string> news; ///< Lines from other threads that are not printed yet. [mutex]
    std::map<CANTransportClient::Status, std::uint64_t> statusChanges; // [mutex]
    std::atomic<std::uint64_t> starts{0};

    const Folder folder;
    VirtualBus bus;
    std::vector<std::unique_ptr<CANTransportClient>> clients; ///< Two for each pair.
    std::vector<std::unique_ptr<Direction>> directions;
};
