#include "velk/Hexdump.h"

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
    for (std::size_t offset = 0; offset < size; offset += width) {
        const std::size_t count = std::min(width, size - offset);
        std::string line = prefix;
        if (offsetStyle == HEXDUMP_OFFSET) {
            line += ' ' + hexText(offset, 4) + ':';
        }
        std::string text;
        for (std::size_t i = 0; i < count; ++i) {
            line += ' ' + hexText(begin[offset + i], 2);
            text += printable(begin[offset + i]);
        }
        if (textColumn) {
            line += std::string(3 * (width - count) + 2, ' ') + text;
        }
        stream << line << '\n';
    }
    stream.flush();
}
