// SPDX-License-Identifier: MIT
#pragma once

#include "simulation/gate/Client.h"

/// What two clients send, and what the bus makes of it.
struct Conditions {
    const char* faults;
    std::uint64_t shortest; ///< Bytes of a message.
    std::uint64_t longest;
    Time frameTime; ///< On the bus.
    double lost;    ///< Probabilities for each frame.
    double doubled;
    double strays; ///< Consecutive frames and answers with the peer's id.
};

/// What became of messages.
struct Tally {
    std::uint64_t messages = 0;
    std::uint64_t acknowledged = 0; ///< And delivered.
    std::uint64_t givenUp = 0;
    std::uint64_t falseOnes = 0;    ///< Acknowledged and never delivered.
    std::uint64_t twice = 0;        ///< Delivered more than once.
    std::uint64_t frames = 0;       ///< On the bus.
    std::uint64_t framesNeeded = 0; ///< Answers included.
    Time time = 0;
};

/// Two clients on one bus, from a seed: both send their messages at once. All in one thread and in virtual
/// time.
class Exchange {
public:
    static constexpr std::size_t messagesEachWay = 10;

    /// @param gates On no side, on one, or on both.
    Exchange(std::uint64_t seed, const Conditions& itsConditions, int gates, Cells& cellCounts);
    void run();
    void addTo(Tally& tally);

private:
    struct Transmission {
        std::size_t to = 0;
        Frame frame{};
        bool made = false; ///< By the bus: no further fault happens to it.
        int delay = 0;     ///< Frames that come before it.
    };
    std::vector<Bytes> drawMessages();
    void arbitrate();
    void arrive();
    Frame stray(std::size_t from);

    Random random;
    Cells& cells;
    const Conditions conditions;
    const bool byTurns; ///< Or the lower id goes first.
    Client sides[2];
    std::deque<Transmission> made;
    std::optional<Transmission> onBus;
    std::size_t turn = 0;
    std::uint64_t frames = 0;
    Time now = 0;
    Time busFree = 0;
    Time doneAt = 0;
};
