// SPDX-License-Identifier: MIT
#include "LogLimiter.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::chrono::seconds period{1};
constexpr unsigned int linesInAPeriod = 10;

} // namespace

LogLimiter::LogLimiter(LogUtil::Sink function, Tally& counters)
    : sink(std::move(function)),
      tally(counters)
{
}

void LogLimiter::pass(LogUtil::Level level, const std::string& line, Clock::time_point now)
{
    if (!sink) {
        return;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    if (level == LogUtil::Level::debug) {
        write(level, line);
        return;
    }
    Kind& kind = kindOf(line);
    if (now - kind.since >= period) {
        kind.since = now;
        kind.passed = 0;
        if (const auto count = std::exchange(kind.leftOut, 0); count > 0) {
            write(level, std::to_string(count) + " lines left out: " + kind.text);
        }
    }
    if (kind.passed == linesInAPeriod) {
        ++kind.leftOut;
        ++tally.linesLeftOut;
        return;
    }
    ++kind.passed;
    write(level, line);
}

LogLimiter::Kind& LogLimiter::kindOf(const std::string& line)
{
    std::string text = line.substr(0, line.find_first_of("0123456789"));
    if (text.empty()) {
        text = "of numbers";
    }
    const auto last = kinds.end() - 1;
    const auto place = std::find_if(kinds.begin(), last, [&](const Kind& kind) {
        return kind.text.empty() || kind.text == text;
    });
    place->text = place == last ? "of other kinds" : text;
    return *place;
}

void LogLimiter::write(LogUtil::Level level, const std::string& line) const
{
    try {
        sink(level, line);
    } catch (...) { // from the program's function: the line is lost
    }
}
