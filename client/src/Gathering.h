// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportThread.h"

#include <chrono>

/// Decides how long the frames of a reception may gather in the socket before they are read together: no
/// answer is due before the last one. Only consecutive frames wait, and never the last ones of a message.
class Gathering {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;

    /// @param longest wait; 0 disables gathering.
    explicit Gathering(Duration longest) : most(longest) {}

    /// Call this for each frame of the peer.
    void onFrame(const CANTransportThread::TPCANMsg& frame);
    /// Call this after onFrame() for all frames that were read together.
    void onTaken(Time now);
    /// @return how long the frames may gather now.
    Duration pause() const;

private:
    const Duration most;
    unsigned int missing = 0; ///< Consecutive frames that the current message still needs.
    Duration frameTime{};     ///< Between two frames, as measured last; 0: unknown.
    unsigned int untimed = 0; ///< Consecutive frames since `lastTaken`.
    bool timing = false;      ///< `lastTaken` belongs to this message.
    Time lastTaken{};
};
