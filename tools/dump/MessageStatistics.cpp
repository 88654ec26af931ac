// SPDX-License-Identifier: MIT
#include "dump/MessageStatistics.h"

#include <algorithm>
#include <cstdio>

namespace {

std::string milliseconds(std::chrono::microseconds duration)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.3f",
                  std::chrono::duration<double, std::milli>(duration).count());
    return text;
}

std::string tableLine(const std::string& direction, std::size_t width,
                      const std::vector<std::string>& columns)
{
    constexpr std::size_t columnWidth = 14;
    std::string line = direction;
    line.resize(std::max({line.size(), width, std::size_t{10}}), ' ');
    for (const std::string& column : columns) {
        line += std::string(columnWidth - std::min(column.size(), columnWidth - 1), ' ') + column;
    }
    return line;
}

} // namespace

void MessageStatistics::add(const TrackedMessage& message)
{
    ++(message.attempt == 1 ? messages : retries);
    acknowledged += message.outcome == Outcome::acknowledged ? 1 : 0;
    refusals += message.outcome == Outcome::refused ? 1 : 0;
    if (message.duration) {
        add(*message.duration);
    }
}

void MessageStatistics::add(Duration duration)
{
    constexpr std::size_t mostKept = 1024;
    shortest = std::min(shortest, duration);
    longest = std::max(longest, duration);
    if (durations++ % step != 0) {
        return;
    }
    if (sample.size() == mostKept) { // keeps every second one
        for (std::size_t i = 0; i < mostKept / 2; ++i) {
            sample[i] = sample[2 * i];
        }
        sample.resize(mostKept / 2);
        step *= 2;
    }
    sample.push_back(duration);
}

std::string MessageStatistics::header(std::size_t width)
{
    return tableLine(
        "direction", width,
        {"messages", "acknowledged", "retries", "refusals", "min ms", "median ms", "max ms"});
}

std::string MessageStatistics::row(const std::string& direction, std::size_t width,
                                   bool timed) const
{
    std::vector<std::string> columns;
    for (const std::size_t count : {messages, acknowledged, retries, refusals}) {
        columns.push_back(std::to_string(count));
    }
    auto sorted = sample;
    std::sort(sorted.begin(), sorted.end());
    if (timed && !sorted.empty()) {
        const std::size_t last = sorted.size() - 1;
        const auto median = (sorted[last / 2] + sorted[sorted.size() / 2]) / 2;
        for (const auto duration : {shortest, median, longest}) {
            columns.push_back(milliseconds(duration));
        }
    } else {
        columns.insert(columns.end(), 3, "-");
    }
    return tableLine(direction, width, columns);
}
