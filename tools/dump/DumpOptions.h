#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

/// The options of the command line.
struct DumpOptions {
    std::string file;                                           ///< Empty: stdin.
    std::optional<std::pair<std::uint32_t, std::uint32_t>> ids; ///< None: all.
    bool ladder = false;
    bool stats = false;
};

namespace CLI {
class App;
} // namespace CLI

/// Binds the options to `options`.
void declare(CLI::App& app, DumpOptions& options);
