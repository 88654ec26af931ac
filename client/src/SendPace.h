#pragma once

#include <algorithm>
#include <chrono>

/// Decides how long to rest when a burst is faster than the bus and the link takes no more frames. poll()
/// reports room again after a few frames; to rest until the link is nearly empty saves most of these wakes.
class SendPace {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;

    /// The link has taken a frame.
    void onSent() { ++sent; }
    /// Nothing is left to send: the burst is over.
    void onIdle() { *this = {}; }
    /// The link takes no more. @return how long to rest; 0: until poll() reports room.
    Duration onBlocked(Time now)
    {
        Duration pause{};
        if (room == 0) {
            room = sent; // the first frames fill the link
        } else if (sent > 0) {
            // The shortest time: a rest that was too long would otherwise lengthen the next one.
            frameTime = std::min(frameTime, (now - since) / sent);
            pause = std::min(longest, frameTime * std::max(room - framesLeft, 0));
        }
        since = now;
        sent = 0;
        return pause < shortest ? Duration::zero() : pause;
    }

private:
    static constexpr int framesLeft = 2; ///< In the link after a rest, so that the bus stays busy.
    static constexpr Duration shortest = std::chrono::microseconds(250);
    static constexpr Duration longest = std::chrono::milliseconds(10);

    int sent = 0; ///< Since the link was blocked last.
    int room = 0; ///< Frames that the link takes at once.
    Time since{};
    Duration frameTime = Duration::max();
};
