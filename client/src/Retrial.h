// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

/// Decides whether a message that the endpoint has given up is tried again. One object for each message.
///
/// A peer that is receiving something else refuses five attempts within 50 ms. That reception ends within a
/// second, so the message is handed over again after that. A silent peer is gone: the endpoint has waited a
/// second for each answer.
class Retrial {
public:
    using Time = std::chrono::steady_clock::time_point;

    enum class Verdict {
        again,    ///< Hand it over again, at `at`.
        refused,  ///< The peer was heard, but did not take the message.
        noAnswer, ///< The peer was silent since the message was last handed over.
    };
    struct Decision {
        Verdict verdict = Verdict::noAnswer;
        Time at{}; ///< Only for `again`.
    };

    /// @param deadline of the caller: no retry starts after it. Time::max() for none.
    explicit Retrial(Time deadline) : notAfter(deadline) {}

    /// Call this each time the endpoint gets the message.
    void handedOver() { heard = false; }
    /// Call this for each frame of the peer, also for one that the gate drops.
    void peerHeard() { heard = true; }
    /// Call this at CTT_DISCONNECTED or CTT_SEND_TIMEOUT.
    Decision givenUp(Time now);

private:
    Time notAfter;
    int retries = 0;
    bool heard = false; ///< The peer, since the message was last handed over.
};
