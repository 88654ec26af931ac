// SPDX-License-Identifier: MIT
#include "demo/Receipt.h"

bool Receipt::take(const NibbleFile::Bytes& message)
{
    if (message.empty()) {
        return false;
    }
    if (message == last) {
        ++repeated;
        return true;
    }
    const auto nibbles = file.match(arrived, message);
    if (NibbleFile::numberOf(message) != nextNumber || !nibbles) {
        return false;
    }
    arrived += *nibbles;
    nextNumber = (nextNumber + 1) % NibbleFile::numbers;
    last = message;
    return true;
}
