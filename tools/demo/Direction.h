#pragma once

#include "demo/DemoEndpoint.h"
#include "demo/NibbleFile.h"
#include "demo/Receipt.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>

/// The file on its way from one endpoint to the other, one message at a time.
///
/// A message ends with an acknowledgement or by being given up. The reports of a give-up come once
/// for a whole outage, so it is told by the endpoint having nothing under way any more. An
/// acknowledgement is believed only when the message has arrived: without message numbers on the
/// bus, a second acknowledgement of the last message may end the next one.
class Direction {
public:
    using Clock = std::chrono::steady_clock;

    struct Setup {
        std::optional<std::size_t> size; ///< Bytes of each message; none: mixed.
        std::uint64_t seed = 0;          ///< Of the mixed sizes.
    };
    struct Counters {
        std::uint64_t messages = 0;
        std::uint64_t requests = 0; ///< Messages given to the endpoint, each time counted.
        std::uint64_t givenUp = 0;
        std::uint64_t falseAcknowledgements = 0;
    };

    Direction(const NibbleFile& sentFile, DemoEndpoint& from, DemoEndpoint& to,
              const Setup& directionSetup);

    /// The sender has heard of an acknowledgement.
    void acknowledged();
    /// The receiver has got a message.
    void arrived(const NibbleFile::Bytes& arrival);
    /// Goes on as far as it can. @param bus the counters of the sender's node.
    void advance(Clock::time_point now, const NodeCounters& bus);

    bool done() const { return phase == Phase::done; }
    /// What has arrived wrong; empty if nothing has.
    const std::string& failure() const { return reason; }
    const Counters& counters() const { return counts; }
    const Receipt& receipt() const { return received; }

private:
    enum class Phase { next, underWay, acknowledged, pause, done };

    void sendNext(Clock::time_point now);
    void request(Clock::time_point now);
    void watch(Clock::time_point now, const NodeCounters& bus);
    void confirm(Clock::time_point now);
    void sendAgainLater(Clock::time_point now);

    const NibbleFile& file;
    DemoEndpoint& sender;
    DemoEndpoint& receiver;
    const Setup setup;
    Receipt received;
    std::mt19937_64 random;

    Phase phase = Phase::next;
    NibbleFile::Bytes message;      ///< The one under way.
    std::size_t end = 0;            ///< Position in the file behind that message.
    Clock::time_point nextLook{};   ///< When to look next whether it was given up.
    Clock::time_point doubtUntil{}; ///< How long it may still arrive after its acknowledgement.
    Clock::time_point pauseUntil{}; ///< When to send the message again.
    int emptyLooks = 0;
    Counters counts;
    std::string reason;
};
