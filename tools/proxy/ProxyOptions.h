#pragma once

#include <optional>
#include <string>
#include <vector>

#include <linux/can.h>

constexpr const char* proxyName = "velkcan-proxy";

/// What the command line says.
struct ProxyOptions {
    std::string interface;
    std::vector<can_filter> accepted; ///< Data frames that come through; empty: all of them.
};

/// Reads the command line. None if the program is to end with `exitCode`: after the help or the
/// version, or with one line on stderr after a wrong argument.
std::optional<ProxyOptions> readCommandLine(int count, char** arguments, int& exitCode);
