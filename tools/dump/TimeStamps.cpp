// SPDX-License-Identifier: MIT
#include "dump/TimeStamps.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace {

constexpr long microsecondsInASecond = 1000000;

std::string stamp(int digits, std::chrono::microseconds time)
{
    char text[64];
    std::snprintf(text, sizeof text, "(%0*ld.%06ld)", digits,
                  static_cast<long>(time.count()) / microsecondsInASecond,
                  static_cast<long>(time.count()) % microsecondsInASecond);
    return text;
}

std::string date(std::chrono::microseconds time)
{
    const auto seconds = static_cast<std::time_t>(time.count() / microsecondsInASecond);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[64];
    std::snprintf(text, sizeof text, "(%04d-%02d-%02d %02d:%02d:%02d.%06ld)", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<long>(time.count()) % microsecondsInASecond);
    return text;
}

} // namespace

std::string absoluteStamp(std::chrono::microseconds time) { return stamp(10, time); }

std::string TimeStamps::next(const LogTime& time)
{
    if (style == 0) {
        return "";
    }
    if (!time) {
        return indent();
    }
    std::string text = format(*time) + ' ';
    width = text.size();
    return text;
}

std::string TimeStamps::format(std::chrono::microseconds time)
{
    switch (style) {
    case 'a':
        return absoluteStamp(time);
    case 'A':
        return date(time);
    default:
        break;
    }
    const auto since = time - reference.value_or(time);
    reference = style == 'd' ? time : reference.value_or(time);
    return stamp(3, std::max(since, std::chrono::microseconds(0)));
}
