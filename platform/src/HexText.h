// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <string>

/// @return the value in lower-case hexadecimal, with at least `digits` digits. No format flag of a stream can
/// change it.
inline std::string hexText(unsigned long value, int digits)
{
    char text[24];
    std::snprintf(text, sizeof text, "%0*lx", digits, value);
    return text;
}
