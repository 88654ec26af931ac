// SPDX-License-Identifier: MIT
#include "common/CANId.h"

#include <charconv>
#include <cstdio>

#include <linux/can.h>

namespace {

constexpr std::size_t extendedDigits = 8;
constexpr std::size_t standardDigits = 3;

} // namespace

std::optional<std::uint32_t> parseHex(std::string_view text)
{
    std::uint32_t value = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value, 16);
    if (result.ec != std::errc() || result.ptr != end) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::uint32_t> parseGivenCANId(std::string_view text)
{
    const bool prefixed = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    return parseCANId(prefixed ? text.substr(2) : text);
}

std::optional<std::uint32_t> parseCANId(std::string_view text)
{
    const bool extended = text.size() == extendedDigits;
    const auto value = parseHex(text);
    if (!value || *value > (extended ? CAN_EFF_MASK : CAN_SFF_MASK) ||
        (!extended && text.size() > standardDigits)) {
        return std::nullopt;
    }
    return *value | (extended ? CAN_EFF_FLAG : 0U);
}

std::string canIdText(std::uint32_t id)
{
    const bool extended = (id & CAN_EFF_FLAG) != 0;
    char text[16];
    std::snprintf(text, sizeof text, extended ? "%08X" : "%03X", id & CAN_EFF_MASK);
    return text;
}
