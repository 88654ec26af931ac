#pragma once

#include "velk/Export.h"

#include <iosfwd>

/// What precedes the bytes of a line.
enum hexdumpPrefix_t {
    HEXDUMP_OFFSET = 0, ///< The offset of the line's first byte, in hexadecimal.
    HEXDUMP_NONE = 1,   ///< Nothing.
};

/// Writes the bytes from `begin` up to, not including, `end` in hexadecimal, one line for each
/// `bytesPerLine` of them (0 counts as 16). Each line starts with `prefix` and a blank; with
/// `textColumn` the printable characters follow the bytes. No bytes give no line. The stream's settings
/// neither change the text nor are changed; a write that fails is lost and throws nothing. Takes no
/// lock.
VELK_EXPORT void hexdump(std::ostream& stream, const unsigned char* begin, const unsigned char* end,
                         const char* prefix, unsigned int bytesPerLine, hexdumpPrefix_t offsetStyle,
                         bool textColumn);
