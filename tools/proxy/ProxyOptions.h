#pragma once

#include <string>
#include <vector>

#include <linux/can.h>

/// What the command line says.
struct ProxyOptions {
    std::string interface;
    std::vector<can_filter> accepted; ///< Data frames that come through; empty: all of them.
    bool quiet = false;
};

namespace CLI {
class App;
} // namespace CLI

void declare(CLI::App& app, ProxyOptions& options);
