#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The number that all the text is in hexadecimal, without prefix or sign.
std::optional<std::uint32_t> parseHex(std::string_view text);

/// The id that a text of 1 to 3 hexadecimal digits (up to 7FF) or of 8 (up to 1FFFFFFF) names. One of
/// 8 digits has 29 bits and is marked by CAN_EFF_FLAG.
std::optional<std::uint32_t> parseCANId(std::string_view text);

/// The id in 3 digits, or in 8 if it is marked by CAN_EFF_FLAG.
std::string canIdText(std::uint32_t id);
