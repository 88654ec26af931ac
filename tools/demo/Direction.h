#pragma once

#include "demo/NibbleFile.h"
#include "demo/Receipt.h"

#include "velk/CANTransportClient.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>

/// The file on its way from one client to the other, one message at a time, on a thread for each of
/// the two.
///
/// An acknowledgement is believed only when the message has arrived: without message numbers on the
/// bus, a second acknowledgement of the last message may end the next one.
class Direction {
public:
    struct Setup {
        std::optional<std::size_t> size; ///< Bytes of each message; none: mixed.
        std::uint64_t seed = 0;          ///< Of the mixed sizes.
        std::string receiver;            ///< Its name, for the user.
    };
    struct Counters {
        std::uint64_t messages = 0;
        std::uint64_t requests = 0; ///< Messages given to the client, each time counted.
        std::uint64_t givenUp = 0;
        std::uint64_t falseAcknowledgements = 0;
        std::uint64_t repeats = 0;
        std::size_t nibbles = 0; ///< Of the file, that have arrived.
        bool done = false;
        std::string failure; ///< What has arrived wrong; empty if nothing has.
    };

    /// Starts at once.
    Direction(const NibbleFile& sentFile, CANTransportClient& from, CANTransportClient& to,
              Setup directionSetup);
    /// Ends it wherever it stands.
    ~Direction();
    Direction(const Direction&) = delete;
    Direction& operator=(const Direction&) = delete;

    Counters counters() const;

private:
    void send();
    void receive();
    bool sendUntilArrived(const NibbleFile::Bytes& message, std::size_t end);

    const NibbleFile& file;
    CANTransportClient& sender;
    CANTransportClient& receiver;
    const Setup setup;
    std::mt19937_64 random; ///< The sending thread's.

    mutable std::mutex mutex; // of all below
    std::condition_variable changed;
    Receipt received;
    Counters counts;
    bool stopping = false;

    std::thread sending;
    std::thread receiving;
};
