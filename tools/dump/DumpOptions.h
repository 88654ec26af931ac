#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

constexpr const char* dumpName = "velkcan-dump";

/// Exit codes of the dump.
enum DumpExit : int {
    dumpExitFine = 0,
    dumpExitNoFrame = 1, ///< The input holds no frame to be followed.
    dumpExitUsage = 2,   ///< Wrong arguments.
    dumpExitFailed = 3   ///< The input cannot be read, or the output not be written.
};

/// What the command line says.
struct DumpOptions {
    std::string file;                                           ///< Empty: stdin.
    std::optional<std::pair<std::uint32_t, std::uint32_t>> ids; ///< None: all.
    bool ladder = false;
    bool stats = false;
};

/// Reads the command line. None if the program is to end with `exitCode`: after the help or the
/// version, or with one line on stderr after a wrong argument.
std::optional<DumpOptions> readDumpOptions(int count, char** arguments, int& exitCode);
