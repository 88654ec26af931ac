// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// @return the value of a hexadecimal number without prefix or sign; none for any other text.
std::optional<std::uint32_t> parseHex(std::string_view text);

/// @return the id given as 1 to 3 hexadecimal digits (up to 7FF) or 8 digits (up to 1FFFFFFF); none for any
/// other text. An id of 8 digits has 29 bits and is marked by CAN_EFF_FLAG.
std::optional<std::uint32_t> parseCANId(std::string_view text);

/// The same for an id on a command line, where `0x` may precede it.
std::optional<std::uint32_t> parseGivenCANId(std::string_view text);

/// @return the id in 3 digits, or in 8 if it is marked by CAN_EFF_FLAG.
std::string canIdText(std::uint32_t id);
