// SPDX-License-Identifier: MIT
#pragma once

#include "dump/MessageTracker.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

/// Statistics of the messages that one id has sent to another.
class MessageStatistics {
public:
    /// Counts an attempt that has ended.
    void add(const TrackedMessage& message);
    /// @return one line of the table below header(). @param width of the longest direction. @param timed
    /// whether the log has usable time stamps.
    std::string row(const std::string& direction, std::size_t width, bool timed) const;
    /// @return the first line of the table.
    static std::string header(std::size_t width);
    /// @return whether no message was counted.
    bool empty() const { return messages == 0; }

private:
    using Duration = std::chrono::microseconds;
    void add(Duration duration);

    std::size_t messages = 0;
    std::size_t acknowledged = 0;
    std::size_t retries = 0;
    std::size_t refusals = 0;
    Duration shortest = Duration::max();
    Duration longest{0};
    std::vector<Duration> sample; ///< Every `step`th duration, for the median.
    std::size_t durations = 0;
    std::size_t step = 1;
};
