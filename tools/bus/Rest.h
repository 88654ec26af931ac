// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>

/// Decides which node has to rest. A node that has more to send than a turn takes would keep the bus and all
/// that receive its frames busy. While others send as well, it rests after each of its turns.
class Rest {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::microseconds duration{200};
    /// How long a node counts as sending after its last frame.
    static constexpr std::chrono::milliseconds memory{20};

    /// Call this when a node has sent something.
    /// @return whether another node has sent lately.
    bool sharesTheBus(std::uint64_t node, Clock::time_point now)
    {
        if (node != last.node) {
            other = last;
        }
        last = {node, now};
        return other.node != none && now - other.at <= memory;
    }

private:
    static constexpr std::uint64_t none = UINT64_MAX;
    struct Turn {
        std::uint64_t node = none;
        Clock::time_point at{};
    };

    Turn last;
    Turn other; ///< The last turn of any other node than that of `last`.
};
