// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

/// Every duration of the protocol.
namespace Timing {

using std::chrono::milliseconds;

/// How long the sender waits for an answer to a single frame, a first frame or a burst, from the last frame
/// sent; also how long it waits after an attempt that was interrupted while it was being sent.
constexpr milliseconds answerTimeout{1000};
/// How long the frames of a message may take, from the ready answer to its first frame.
constexpr milliseconds receptionTimeout{1000};
/// Between an acknowledged message and the next one.
constexpr milliseconds pauseAfterAcknowledgement{10};
/// How long a refused message waits before it counts as failed and is sent again.
constexpr milliseconds pauseAfterRefusal{10};
/// Appears in the log only: the first pass of the loop replaces it before any wait.
constexpr milliseconds atStart{5000};
/// No timer runs.
constexpr milliseconds none{0};

} // namespace Timing
