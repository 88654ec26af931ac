// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>

/// All that is random in a run comes from here, so that its seed repeats it everywhere: the engine
/// is the same in every standard library, the distributions are not.
class Random {
public:
    explicit Random(std::uint64_t seed) : engine(seed) {}

    /// 0 to `limit` - 1.
    std::uint64_t below(std::uint64_t limit) { return engine() % limit; }
    std::uint64_t between(std::uint64_t low, std::uint64_t high)
    {
        return low + below(high - low + 1);
    }
    bool chance(double probability)
    {
        return static_cast<double>(engine() >> 11) < probability * 9007199254740992.0; // 2^53
    }
    template <typename Container> auto oneOf(const Container& values)
    {
        return *std::next(values.begin(), static_cast<std::ptrdiff_t>(below(values.size())));
    }

private:
    std::mt19937_64 engine;
};
