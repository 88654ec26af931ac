#pragma once

#include "bus/FaultInjector.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

/// Exit codes of the demo.
enum ExitCode : int {
    exitWhole = 0,        ///< All that was sent arrived, and it is what was sent.
    exitFailed = 1,       ///< Something is missing or differs, or the demo could not go on.
    exitUsage = 2,        ///< Wrong arguments, or a file that cannot be read.
    exitInterrupted = 130 ///< Ended by a signal.
};

/// What the command line says.
struct DemoOptions {
    std::string file;                ///< Empty: the one beside the program.
    std::optional<std::size_t> size; ///< Bytes of each message; none: mixed.
    std::size_t pairs = 1;
    Faults faults;
    unsigned long bitrate = 0; ///< Bits per second; 0: as fast as it goes.
    bool ladder = false;
    int debugLevel = 0;

    std::size_t longestMessage() const;
};

namespace CLI {
class App;
} // namespace CLI

void declare(CLI::App& app, DemoOptions& options);
