// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// The options of the command line.
struct DumpOptions {
    std::optional<std::pair<std::uint32_t, std::uint32_t>> ids; ///< None: all.
    bool ladder = false;
    bool stats = false;
    char times = 0; ///< As candump's option -t; 0: none.
    bool ascii = false;
    bool colour = false;
    std::string log;                 ///< File; empty: none.
    std::string svg;                 ///< The same.
    std::vector<std::string> inputs; ///< Empty: standard input.
};

namespace CLI {
class App;
} // namespace CLI

/// Binds the options to `options`.
void declare(CLI::App& app, DumpOptions& options);
