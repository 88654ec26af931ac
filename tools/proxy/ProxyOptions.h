// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include <linux/can.h>

/// The options of the command line.
struct ProxyOptions {
    std::string interface;
    std::vector<can_filter> accepted; ///< Data frames that pass; empty: all.
    bool gate = false;                ///< Pass frames through a CANTransportGate.
    bool quiet = false;
};

namespace CLI {
class App;
} // namespace CLI

/// Binds the options to `options`.
void declare(CLI::App& app, ProxyOptions& options);
