#pragma once

#include "dump/MessageTracker.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

/// Sums up what one id has sent to another.
class MessageStatistics {
public:
    void add(const TrackedMessage& message);
    /// One line of the table below header(). @param timed whether the log's time stamps are of use.
    std::string row(const std::string& direction, bool timed) const;
    static std::string header();
    bool empty() const { return messages == 0; }

private:
    std::size_t messages = 0;
    std::size_t acknowledged = 0;
    std::size_t retries = 0;
    std::size_t refusals = 0;
    std::vector<std::chrono::microseconds> durations;
};
