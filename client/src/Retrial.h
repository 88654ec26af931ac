#pragma once

#include <chrono>

/// Decides what becomes of a message that the endpoint has given up. One object for each message.
///
/// A peer that is receiving something else refuses five attempts within 50 ms. That reception ends within a
/// second, so the message is handed over again after it. A peer that is silent is gone: the endpoint has
/// waited a second for each answer.
class Retrial {
public:
    using Time = std::chrono::steady_clock::time_point;

    enum class Verdict {
        again,    ///< Hand it over again, at `at`.
        refused,  ///< The peer is there, and did not take it.
        noAnswer, ///< The peer was silent since the message was handed over, the last time.
    };
    struct Decision {
        Verdict verdict = Verdict::noAnswer;
        Time at{}; ///< Only for `again`.
    };

    /// @param deadline of the caller: no retry begins after it. Time::max() for none.
    explicit Retrial(Time deadline) : notAfter(deadline) {}

    /// The endpoint gets the message, for the first time or again.
    void handedOver() { heard = false; }
    /// Any frame of the peer, also one that the gate keeps from the endpoint.
    void peerHeard() { heard = true; }
    /// CTT_DISCONNECTED or CTT_SEND_TIMEOUT.
    Decision givenUp(Time now);

private:
    Time notAfter;
    int retries = 0;
    bool heard = false; ///< Since the message was handed over.
};
