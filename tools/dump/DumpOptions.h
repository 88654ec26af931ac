#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

/// What the command line says.
struct DumpOptions {
    std::string file;                                           ///< Empty: stdin.
    std::optional<std::pair<std::uint32_t, std::uint32_t>> ids; ///< None: all.
    bool ladder = false;
    bool stats = false;
};

namespace CLI {
class App;
} // namespace CLI

void declare(CLI::App& app, DumpOptions& options);
