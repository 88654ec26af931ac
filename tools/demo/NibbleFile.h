#pragma once

#include <cstddef>
#include <optional>
#include <vector>

/// A file as a stream of nibbles, and the messages that carry it.
///
/// The first nibble of each message is the message's number, modulo 16: so that there is room for
/// it in a message of one byte. The rest are nibbles of the file, high nibble of a byte first; if
/// the file ends in the middle of a message's last byte, a nibble of 0 fills it.
class NibbleFile {
public:
    using Bytes = std::vector<unsigned char>;

    /// @param fileBytes not copied.
    explicit NibbleFile(const Bytes& fileBytes) : bytes(fileBytes) {}

    /// Nibbles of the file.
    std::size_t size() const { return 2 * bytes.size(); }

    /// The message that carries the nibbles from `position` on: as long as the rest of the file
    /// needs, but at most `maxBytes`, at least 1.
    Bytes pack(std::size_t position, unsigned int number, std::size_t maxBytes) const;

    static unsigned int numberOf(const Bytes& message) { return message[0] >> 4U; }

    /// How many nibbles of the file a message holds; none if they are not those from `position` on.
    std::optional<std::size_t> match(std::size_t position, const Bytes& message) const;

private:
    unsigned int at(std::size_t position) const;

    const Bytes& bytes;
};
