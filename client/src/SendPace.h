// SPDX-License-Identifier: MIT
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
        if (wanted != 0 && sent == 0) {
            return Duration::zero();
        }
        Duration pause{};
        if (wanted == 0) {
            wanted = std::max(sent - 3, 1); // the first frames fill the link
        } else {
            if (sent < wanted / 2) { // the link drained while it was filled, and has less room
                wanted = std::max(sent / 2, 1);
            }
            pause = (now - since) * wanted / sent;
            // Later ones count the rest too, and a rest that was too long would make the next one longer.
            limit = limit == Duration::zero() ? std::min(longest, pause + pause / 5) : limit;
            pause = std::min(limit, pause);
        }
        since = now;
        sent = 0;
        return pause < shortest ? Duration::zero() : pause;
    }

private:
    static constexpr Duration shortest = std::chrono::microseconds(250);
    static constexpr Duration longest = std::chrono::milliseconds(10);

    int sent = 0; ///< Since the link was blocked last.
    /// Frames that should leave during a rest. Some stay, so that the bus remains busy.
    int wanted = 0;
    Time since{};     ///< When the link was blocked last.
    Duration limit{}; ///< Of the rests in this burst.
};
