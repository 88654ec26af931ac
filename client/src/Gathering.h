#pragma once

#include "velk/CANTransportThread.h"

#include <chrono>

/// Decides how long the frames of a running reception may gather in the socket before they are taken
/// together: no answer is due before the last one. Only consecutive frames ever wait, and never the last
/// ones of a message.
class Gathering {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;

    /// @param longest wait; 0 switches it off.
    explicit Gathering(Duration longest) : most(longest) {}

    /// A frame of the peer.
    void onFrame(const CANTransportThread::TPCANMsg& frame);
    /// What onFrame() was told since the last call was taken together.
    void onTaken(Time now);
    /// @return how long nothing has to be taken.
    Duration pause() const;

private:
    const Duration most;
    unsigned int missing = 0; ///< Consecutive frames of the message that is being received.
    Duration frameTime{};     ///< Between two frames, as measured last; 0: unknown.
    unsigned int untimed = 0; ///< Consecutive frames since `lastTaken`.
    bool timing = false;      ///< `lastTaken` is of this message.
    Time lastTaken{};
};
