// SPDX-License-Identifier: MIT
#pragma once

#include "bus/Frame.h"

#include <chrono>

/// How long frames occupy the bus.
namespace Pace {

using Clock = std::chrono::steady_clock;

/// @return bits on the wire of a classic frame with an 11-bit id: 47 around the data, the data, and one stuff
/// bit for every seven bits that can be stuffed (in the worst case it would be every four). A frame of 8 data
/// bytes has 125.
constexpr unsigned int bitsOfFrame(unsigned int dataBytes)
{
    const unsigned int stuffable = 34 + 8 * dataBytes;
    return 47 + 8 * dataBytes + stuffable / 7;
}

/// @return how long a frame takes. @param bitrate in bits per second, not 0.
constexpr Clock::duration timeOfFrame(unsigned int dataBytes, unsigned long bitrate)
{
    return std::chrono::nanoseconds(bitsOfFrame(dataBytes) * 1000000000ULL / bitrate);
}

} // namespace Pace
