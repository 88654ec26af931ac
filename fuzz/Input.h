// SPDX-License-Identifier: MIT
#pragma once

#include "support/Promise.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

using Bytes = std::vector<unsigned char>;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// The input, read from its beginning.
struct Input {
    const std::uint8_t* next;
    std::size_t left;

    /// At most `count` bytes.
    Bytes bytes(std::size_t count)
    {
        const std::uint8_t* begin = next;
        next += std::min(count, left);
        left -= static_cast<std::size_t>(next - begin);
        return {begin, next};
    }
    /// 0 after the end.
    std::size_t byte() { return left == 0 ? 0 : bytes(1)[0]; }
};
