#pragma once

#include <cstdio>
#include <string>

/// Lower-case hexadecimal of at least `digits` digits. Text of its own, so that no format flag of a
/// stream can change it.
inline std::string hexText(unsigned long value, int digits)
{
    char text[24];
    std::snprintf(text, sizeof text, "%0*lx", digits, value);
    return text;
}
