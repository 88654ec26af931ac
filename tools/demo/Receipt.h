#pragma once

#include "demo/NibbleFile.h"

#include <cstddef>
#include <cstdint>

/// The receiving side of one direction: compares what arrives with the file.
class Receipt {
public:
    explicit Receipt(const NibbleFile& expectedFile) : file(expectedFile) {}

    /// False if the message is neither the next one nor the last one once more.
    bool take(const NibbleFile::Bytes& message);

    /// Nibbles of the file that have arrived.
    std::size_t position() const { return arrived; }
    /// Messages that came once more.
    std::uint64_t repeats() const { return repeated; }

private:
    const NibbleFile& file;
    std::size_t arrived = 0;
    unsigned int nextNumber = 0;
    NibbleFile::Bytes last;
    std::uint64_t repeated = 0;
};
