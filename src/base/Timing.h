#pragma once

#include <chrono>

/// Every duration of the protocol.
namespace Timing {

using std::chrono::milliseconds;

/// For the peer's answer to a single frame, a first frame or a burst, counted from the last frame sent;
/// also the time before the next attempt after one that could not even be sent.
constexpr milliseconds answerTimeout{1000};
/// For a whole message, counted from the ready answer to its first frame.
constexpr milliseconds receptionTimeout{1000};
/// Between an acknowledged message and the next one.
constexpr milliseconds pauseAfterAcknowledgement{10};
/// Before a message that the peer refused counts as failed and is sent again.
constexpr milliseconds pauseAfterRefusal{10};
/// Only seen in the log: the first pass of the loop replaces it before any wait.
constexpr milliseconds atStart{5000};
/// No timer runs.
constexpr milliseconds none{0};

} // namespace Timing
