// SPDX-License-Identifier: MIT
#include "demo/NibbleFile.h"

#include <algorithm>

namespace {

unsigned int nibble(const NibbleFile::Bytes& bytes, std::size_t position)
{
    const unsigned int byte = bytes[position / 2];
    return position % 2 == 0 ? byte >> 4U : byte & 0x0FU;
}

} // namespace

unsigned int NibbleFile::at(std::size_t position) const
{
    return position < size() ? nibble(bytes, position) : 0;
}

NibbleFile::Bytes NibbleFile::pack(std::size_t position, unsigned int number,
                                   std::size_t maxBytes) const
{
    const std::size_t needed = (1 + size() - position + 1) / 2;
    Bytes message(std::min(maxBytes, needed));
    message[0] = static_cast<unsigned char>(number % numbers << 4U | at(position));
    for (std::size_t i = 1; i < message.size(); ++i) {
        const std::size_t high = position + 2 * i - 1;
        message[i] = static_cast<unsigned char>(at(high) << 4U | at(high + 1));
    }
    return message;
}

std::optional<std::size_t> NibbleFile::match(std::size_t position, const Bytes& message) const
{
    const std::size_t nibbles = 2 * message.size() - 1;
    const std::size_t carried = std::min(nibbles, size() - position);
    if (nibbles - carried > 1) { // more than the nibble that may fill the last byte
        return std::nullopt;
    }
    for (std::size_t i = 0; i < nibbles; ++i) {
        if (nibble(message, i + 1) != at(position + i)) {
            return std::nullopt;
        }
    }
    return carried;
}
