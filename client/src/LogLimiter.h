// SPDX-License-Identifier: MIT
#pragma once

#include "velk/LogUtil.h"

#include "Tally.h"

#include <array>
#include <chrono>
#include <mutex>
#include <string>

/// Passes log lines to the program's function, at most ten error and information lines of one kind per
/// second. After that second, the next line of the kind is preceded by a line with the number left out. The
/// kind of a line is its text up to the first digit. Any thread; the function runs under the mutex.
class LogLimiter {
public:
    using Clock = std::chrono::steady_clock;

    LogLimiter(LogUtil::Sink function, Tally& counters);

    void pass(LogUtil::Level level, const std::string& line, Clock::time_point now = Clock::now());
    /// @return whether the program has set a function.
    bool isActive() const { return static_cast<bool>(sink); }

private:
    struct Kind {
        std::string text;
        Clock::time_point since{};
        unsigned int passed = 0;
        std::uint64_t leftOut = 0;
    };

    Kind& kindOf(const std::string& line);
    void write(LogUtil::Level level, const std::string& line) const;

    const LogUtil::Sink sink;
    Tally& tally;
    std::mutex mutex;
    std::array<Kind, 32> kinds; ///< Further kinds share the last one.
};
