// SPDX-License-Identifier: MIT
#pragma once

#include "bus/FaultInjector.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

/// The options of the command line.
struct DemoOptions {
    std::string file;                ///< Empty: the file next to the program.
    std::optional<std::size_t> size; ///< Bytes of each message; none: mixed.
    std::size_t pairs = 1;
    FaultRates faults;
    unsigned long bitrate = 0; ///< Bits per second; 0: as fast as possible.
    bool ladder = false;
    int debugLevel = 0;

    /// @return size of the longest message, in bytes.
    std::size_t longestMessage() const;
};

namespace CLI {
class App;
} // namespace CLI

/// Binds the options to `options`.
void declare(CLI::App& app, DemoOptions& options);
