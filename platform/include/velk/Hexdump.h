#pragma once

#include "velk/Export.h"

#include <iosfwd>

/// What stands in front of the bytes of a line.
enum hexdumpPrefix_t {
    HEXDUMP_OFFSET = 0, ///< The offset of the line's first byte, in hexadecimal.
    HEXDUMP_NONE = 1,   ///< Nothing.
};

/// Writes the bytes from `begin` up to, not including, `end` in hexadecimal, one line for each
/// `bytesPerLine` of them (0 counts as 16). Each line begins with `prefix` and a blank; with
/// `textColumn` the printable characters stand behind the bytes. No bytes give no line. Leaves the
/// stream's format as it was, and takes no lock.
VELK_EXPORT void hexdump(std::ostream& stream, const unsigned char* begin, const unsigned char* end,
                         const char* prefix, unsigned int bytesPerLine, hexdumpPrefix_t offsetStyle,
                         bool textColumn);
