// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>

/// Cuts the input of a descriptor into lines, without waiting for one.
class LineReader {
public:
    static constexpr std::size_t longestLine = 65536;

    explicit LineReader(int input) : descriptor(input) {}

    /// Reads once; blocks only if nothing is readable.
    /// @throws Tool::Failure if that fails, or if a line has more than `longestLine` bytes.
    void read();
    /// @return the next line without its end; none until more is read. Its end may be missing in the last one.
    std::optional<std::string> takeLine();
    bool isAtEnd() const { return ended && text.empty(); }

private:
    const int descriptor;
    std::string text; ///< Read, but not taken.
    bool ended = false;
};
