// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

/// A file as a stream of nibbles, and the messages that carry it.
///
/// The first nibble of each message is its number, modulo 16: even a message of one byte has room for it. The
/// rest are nibbles of the file, the high nibble of a byte first. If the file ends in the middle of the last
/// byte of a message, a nibble of 0 fills it.
class NibbleFile {
public:
    using Bytes = std::vector<unsigned char>;

    /// @param fileBytes not copied.
    explicit NibbleFile(const Bytes& fileBytes) : bytes(fileBytes) {}

    /// @return the number of nibbles in the file.
    std::size_t size() const { return 2 * bytes.size(); }

    /// @return the message that carries the nibbles from `position` on. It is as long as the rest of the file
    /// needs, but has at least 1 and at most `maxBytes` bytes.
    Bytes pack(std::size_t position, unsigned int number, std::size_t maxBytes) const;

    /// @return the number of a message, 0 to 15.
    static unsigned int numberOf(const Bytes& message) { return message[0] >> 4U; }

    static constexpr unsigned int numbers = 16; ///< 0 to 15, then 0 again.

    /// @return how many nibbles of the file the message holds; none if they are not the nibbles from
    /// `position` on.
    std::optional<std::size_t> match(std::size_t position, const Bytes& message) const;

private:
    unsigned int at(std::size_t position) const;

    const Bytes& bytes;
};
