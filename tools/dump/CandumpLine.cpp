// SPDX-License-Identifier: MIT
#include "dump/CandumpLine.h"

#include "common/CANId.h"
#include "common/HexText.h"
#include "dump/DumpLines.h"
#include "dump/TimeStamps.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <vector>

namespace {

using Frame = CANTransportThread::TPCANMsg;
using Words = std::vector<std::string_view>;

constexpr const char* blanks = " \t\r";
constexpr double microsecondsInASecond = 1e6;
constexpr double latestSeconds = 4e9;       ///< Up to here a double has a precision of 1 µs.
constexpr std::size_t directionColumns = 3; ///< "RX B E": direction, broadcast, error state.

Words split(std::string_view text)
{
    Words words;
    for (auto begin = text.find_first_not_of(blanks); begin != std::string_view::npos;
         begin = text.find_first_not_of(blanks)) {
        text.remove_prefix(begin);
        const auto length = std::min(text.find_first_of(blanks), text.size());
        words.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return words;
}

LogTime parseTime(const std::string& text)
{
    std::tm date{};
    const char* const fraction = strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &date);
    const char* const number = fraction == nullptr ? text.c_str() : fraction;
    char* end = nullptr;
    date.tm_isdst = -1; // candump prints the local time
    const double seconds = std::strtod(number, &end) +
                           (fraction == nullptr ? 0.0 : static_cast<double>(mktime(&date)));
    if (end == number || *end != '\0' || !(seconds >= 0 && seconds < latestSeconds)) {
        return std::nullopt;
    }
    return std::chrono::microseconds(std::llround(seconds * microsecondsInASecond));
}

/// Removes a time stamp "(…)" from the start of the line. @return the time; none without a valid stamp.
LogTime takeTime(std::string_view& line)
{
    const auto begin = std::min(line.find_first_not_of(blanks), line.size());
    const auto end = line.find(')');
    if (line.substr(begin, 1) != "(" || end == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string stamp(line.substr(begin + 1, end - begin - 1));
    line.remove_prefix(end + 1);
    return parseTime(stamp);
}

/// No byte of a line may act on a terminal.
bool isPrintable(char byte) { return (byte >= ' ' && byte <= '~') || byte == '\t' || byte == '\r'; }

bool takeBytes(const Words& bytes, Frame& frame)
{
    if (bytes.size() > sizeof frame.data) {
        return false;
    }
    for (const std::string_view text : bytes) {
        const auto value = text.size() == 2 ? parseHex(text) : std::nullopt;
        if (!value) {
            return false;
        }
        frame.data[frame.len++] = static_cast<std::uint8_t>(*value);
    }
    return true;
}

/// Parses "0141". Only the direction that `-x` adds may follow.
bool takeLogData(std::string_view data, const Words& following, Frame& frame)
{
    Words bytes;
    for (; !data.empty(); data.remove_prefix(std::min<std::size_t>(2, data.size()))) {
        bytes.push_back(data.substr(0, 2));
    }
    const bool bare = following.empty() || (following.size() == 1 && following[0].size() == 1);
    return bare && takeBytes(bytes, frame);
}

/// Parses "[2] 01 41". Only the characters that `-a` adds may follow. FD frames have two digits in the
/// brackets.
bool takeColumns(const Words& words, Frame& frame)
{
    if (words.empty() || words[0].size() != 3 || words[0].front() != '[' ||
        words[0].back() != ']') {
        return false;
    }
    const auto length = parseHex(words[0].substr(1, 1));
    if (!length || words.size() <= *length) {
        return false;
    }
    const auto end = words.begin() + 1 + *length;
    return (end == words.end() || end->front() == '\'') &&
           takeBytes(Words(words.begin() + 1, end), frame);
}

} // namespace

std::optional<LoggedFrame> parseCandumpLine(const std::string& line)
{
    if (!std::all_of(line.begin(), line.end(), isPrintable)) {
        return std::nullopt;
    }
    LoggedFrame logged;
    std::string_view rest = line;
    logged.time = takeTime(rest);
    const Words words = split(rest);
    const bool hasDirection = words.size() > 1 && (words[1] == "RX" || words[1] == "TX");
    const std::size_t idIndex = hasDirection ? 1 + directionColumns : 1;
    if (words.size() <= idIndex) {
        return std::nullopt;
    }
    logged.bus = words[0];
    const std::string_view word = words[idIndex];
    const Words following(words.begin() + static_cast<std::ptrdiff_t>(idIndex) + 1, words.end());
    const auto hash = word.find('#');
    const auto id = parseCANId(word.substr(0, hash));
    if (!id || !(hash == std::string_view::npos
                     ? takeColumns(following, logged.frame)
                     : takeLogData(word.substr(hash + 1), following, logged.frame))) {
        return std::nullopt;
    }
    logged.frame.canID = *id;
    return logged;
}

std::string candumpLine(const LoggedFrame& logged)
{
    const auto& frame = logged.frame;
    return absoluteStamp(logged.time.value_or(std::chrono::microseconds(0))) + ' ' + logged.bus +
           ' ' + canIdText(frame.canID) + '#' + hexText(frame.data, frame.len, "");
}
