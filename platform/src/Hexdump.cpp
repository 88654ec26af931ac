// SPDX-License-Identifier: MIT
#include "velk/Hexdump.h"

#include "velk/LogStream.h"

#include "HexText.h"

#include <algorithm>
#include <cstddef>
#include <ostream>
#include <string>

namespace {

char printable(unsigned char byte)
{
    return byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
}

} // namespace

void hexdump(std::ostream& stream, const unsigned char* begin, const unsigned char* end,
             const char* prefix, unsigned int bytesPerLine, hexdumpPrefix_t offsetStyle,
             bool textColumn)
{
    const std::size_t width = bytesPerLine == 0 ? 16 : bytesPerLine;
    const auto size = static_cast<std::size_t>(end - begin);
    LogStream lines(stream);
    for (std::size_t offset = 0; offset < size; offset += width) {
        const std::size_t count = std::min(width, size - offset);
        lines << prefix;
        if (offsetStyle == HEXDUMP_OFFSET) {
            lines << ' ' << hexText(offset, 4) << ':';
        }
        for (std::size_t i = offset; i < offset + count; ++i) {
            lines << ' ' << hexText(begin[i], 2);
        }
        if (textColumn) {
            lines << std::string(3 * (width - count) + 2, ' ');
            std::for_each_n(begin + offset, count,
                            [&](unsigned char byte) { lines << printable(byte); });
        }
        lines << '\n';
    }
}
