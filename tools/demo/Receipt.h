// SPDX-License-Identifier: MIT
#pragma once

#include "demo/NibbleFile.h"

#include <cstddef>
#include <cstdint>

/// The receiving side of one direction: compares the messages with the file.
class Receipt {
public:
    explicit Receipt(const NibbleFile& expectedFile) : file(expectedFile) {}

    /// Takes a message. @return false if it is neither the next one nor a repeat of the last.
    bool take(const NibbleFile::Bytes& message);

    /// @return how many nibbles of the file have arrived.
    std::size_t position() const { return arrived; }
    /// @return how many messages arrived again.
    std::uint64_t repeats() const { return repeated; }

private:
    const NibbleFile& file;
    std::size_t arrived = 0;
    unsigned int nextNumber = 0;
    NibbleFile::Bytes last;
    std::uint64_t repeated = 0;
};
