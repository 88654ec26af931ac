// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Export.h"

#include <iosfwd>

/// What precedes the bytes on each line.
enum hexdumpPrefix_t {
    HEXDUMP_OFFSET = 0, ///< The offset of the line's first byte, in hexadecimal.
    HEXDUMP_NONE = 1,   ///< Nothing.
};

/// Writes the bytes from `begin` up to, not including, `end` in hexadecimal, `bytesPerLine` on each line
/// (0 means 16). Each line starts with `prefix` and a space. If `textColumn` is set, the bytes are followed
/// by their characters, `.` for those that are not printable. Without bytes no line is written. The stream's
/// settings neither affect the text nor change. A write that fails is lost and throws nothing. Takes no lock.
VELK_EXPORT void hexdump(std::ostream& stream, const unsigned char* begin, const unsigned char* end,
                         const char* prefix, unsigned int bytesPerLine, hexdumpPrefix_t offsetStyle,
                         bool textColumn);
