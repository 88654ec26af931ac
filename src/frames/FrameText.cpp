// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

std::ostream& operator<<(std::ostream& stream, const CANTransportThread::TPCANMsg& frame)
{
    // Formatted without the stream, so that no setting of it can change the text.
    char text[64];
    int end = std::snprintf(text, sizeof text, " 0x%08x %x", frame.canID, frame.len);
    const std::size_t count = std::min<std::size_t>(frame.len, sizeof frame.data);
    for (std::size_t i = 0; i < count; ++i) {
        end += std::snprintf(text + end, sizeof text - static_cast<std::size_t>(end), "%s 0x%02x",
                             i == 0 ? " " : "", frame.data[i]);
    }
    stream.width(0);
    return stream << text;
}
