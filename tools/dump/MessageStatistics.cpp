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

std::string tableLine(const std::string& direction, const std::vector<std::string>& columns)
{
    constexpr std::size_t directionWidth = 10;
    constexpr std::size_t columnWidth = 14;
    std::string line = direction;
    line.resize(std::max(line.size(), directionWidth), ' ');
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
        durations.push_back(*message.duration);
    }
}

std::string MessageStatistics::header()
{
    return tableLine("direction", {"messages", "acknowledged", "retries", "refusals", "min ms",
                                   "median ms", "max ms"});
}

std::string MessageStatistics::row(const std::string& direction, bool timed) const
{
    std::vector<std::string> columns;
    for (const std::size_t count : {messages, acknowledged, retries, refusals}) {
        columns.push_back(std::to_string(count));
    }
    auto sorted = durations;
    std::sort(sorted.begin(), sorted.end());
    const std::size_t last = sorted.size() - 1;
    for (const std::size_t index : {std::size_t{0}, last / 2, last}) {
        columns.push_back(timed && !sorted.empty() ? milliseconds(sorted[index]) : "-");
    }
    return tableLine(direction, columns);
}
