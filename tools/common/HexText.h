// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// @return the bytes in hexadecimal, with a text between them.
inline std::string hexText(const std::uint8_t* bytes, std::size_t count, const char* between)
{
    constexpr const char* digits = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += i == 0 ? "" : between;
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 0x0F];
    }
    return text;
}
