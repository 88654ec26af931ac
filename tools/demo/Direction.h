// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportClient.h"

#include "demo/NibbleFile.h"
#include "demo/Receipt.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>

/// Transfers the file from one client to the other, one message at a time. Sending and receiving each have a
/// thread.
///
/// An acknowledgement counts only if the message has arrived: frames carry no message number, so a second
/// acknowledgement of one message can end the next one.
class Direction {
public:
    struct Setup {
        std::optional<std::size_t> size; ///< Bytes of each message; none: mixed.
        std::uint64_t seed = 0;          ///< Seed of the mixed sizes.
        std::string receiver;            ///< Name of the receiver, for messages to the user.
    };
    struct Counters {
        std::uint64_t messages = 0;
        std::uint64_t requests = 0; ///< Calls of send(), repeats included.
        std::uint64_t givenUp = 0;
        std::uint64_t falseAcknowledgements = 0;
        std::uint64_t repeats = 0;
        std::size_t nibbles = 0; ///< Nibbles of the file that have arrived.
        bool done = false;
        std::string failure; ///< What went wrong; empty if nothing did.
    };

    /// Starts the transfer.
    Direction(const NibbleFile& sentFile, CANTransportClient& from, CANTransportClient& to,
              Setup directionSetup);
    /// Ends the transfer at any point.
    ~Direction();
    Direction(const Direction&) = delete;
    Direction& operator=(const Direction&) = delete;

    /// @return the counts so far.
    Counters counters() const;

private:
    void send();
    void receive();
    bool sendUntilArrived(const NibbleFile::Bytes& message, std::size_t end);

    const NibbleFile& file;
    CANTransportClient& sender;
    CANTransportClient& receiver;
    const Setup setup;
    std::mt19937_64 random; ///< Used by the sending thread alone.

    mutable std::mutex mutex; // guards all below
    std::condition_variable changed;
    Receipt received;
    Counters counts;
    bool stopping = false;

    std::thread sending;
    std::thread receiving;
};
