// SPDX-License-Identifier: MIT
#include "dump/DumpLines.h"

#include "velk/CANTransportFrame.h"

#include "common/FrameWords.h"
#include "common/HexText.h"

#include <algorithm>

namespace {

constexpr std::size_t widthOfWords = 9; ///< Only long messages and answers need more.

std::string column(const std::uint8_t* bytes, std::size_t count)
{
    return (count == 0 ? "" : "  ") + hexText(bytes, count, " ");
}

/// @return the characters as candump -a prints them.
std::string asciiText(const std::uint8_t* bytes, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += bytes[i] >= ' ' && bytes[i] <= '~' ? static_cast<char>(bytes[i]) : '.';
    }
    return "  '" + text + "'";
}

const char* outcomeWord(Outcome outcome)
{
    switch (outcome) {
    case Outcome::acknowledged:
        return "acknowledged";
    case Outcome::refused:
        return "refused";
    case Outcome::restarted:
        return "restarted";
    case Outcome::incomplete:
        return "incomplete";
    }
    return "";
}

} // namespace

std::string frameLine(const std::string& sender, const SentFrame& sent, bool ascii)
{
    const auto& frame = sent.frame;
    std::string words = frameWords(frame);
    words.resize(std::max(words.size(), widthOfWords), ' ');
    const bool first = CANTransportFrame::kindOf(frame.data) == CANTransportFrame::CTP_FIRST_FRAME;
    const std::size_t head = first ? 2 : 1;
    const std::size_t count = std::max<std::size_t>(frame.len, head) - head;
    std::string bytes = column(frame.data + head, count);
    if (isAnswer(sent) && bytes.find_first_not_of(" 0") == std::string::npos) {
        bytes.clear(); // they have no meaning, and every receiver ignores them
    } else if (ascii) {
        constexpr std::size_t widthOfBytes = 22; ///< Of the seven after a short head.
        bytes.resize(widthOfBytes, ' ');
        bytes += asciiText(frame.data + head, count);
    }
    return sender + "  [" + std::to_string(frame.len) + "]  " + words + bytes;
}

std::string messageLine(const std::string& from, const std::string& to,
                        const TrackedMessage& message, bool ascii)
{
    std::string line = from + " -> " + to + "  " + outcomeWord(message.outcome);
    if (message.attempt > 1) {
        line += ", attempt " + std::to_string(message.attempt);
    }
    line += ", ";
    if (message.bytes.size() < message.length) {
        line += std::to_string(message.bytes.size()) + " of ";
    }
    return line + std::to_string(message.length) + (message.length == 1 ? " byte" : " bytes") +
           column(message.bytes.data(), message.bytes.size()) +
           (ascii ? asciiText(message.bytes.data(), message.bytes.size()) : "");
}
