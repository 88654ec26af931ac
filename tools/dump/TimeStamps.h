// SPDX-License-Identifier: MIT
#pragma once

#include "dump/SentFrame.h"

#include <string>

/// The time stamps of candump's option -t.
class TimeStamps {
public:
    /// @param style 'a' absolute, 'A' with date, 'd' since the previous frame, 'z' since the first; 0: none.
    explicit TimeStamps(char stampStyle) : style(stampStyle) {}

    /// @return the stamp of the next frame and a blank; only blanks without a time.
    std::string next(const LogTime& time);
    /// @return as many blanks as the last stamp has characters.
    std::string indent() const { return std::string(width, ' '); }

private:
    std::string format(std::chrono::microseconds time);

    const char style;
    LogTime reference;
    std::size_t width = 0;
};

/// @return "(1706702400.500000)".
std::string absoluteStamp(std::chrono::microseconds time);
