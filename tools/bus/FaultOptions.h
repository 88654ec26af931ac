// SPDX-License-Identifier: MIT
#pragma once

#include "bus/FaultInjector.h"
#include "common/Options.h"

#include <cstdint>
#include <string>

namespace Tool {

/// Adds the options for faults of a bus. @param helpOfSeed what the seed decides.
inline void addFaults(CLI::App& app, FaultRates& faults, const std::string& helpOfSeed)
{
    const auto addRate = [&app](const char* option, double& target, const char* help) {
        addNumber<double>(app, option, target, 0, 1, help, "a probability from 0 to 1");
    };
    addRate("--drop RATE", faults.drop, "Share of frames that are lost, 0 to 1");
    addRate("--duplicate RATE", faults.duplicate, "Share of frames that arrive twice, 0 to 1");
    addRate("--stray RATE", faults.stray,
            "Share of frames that are followed by a stray frame, 0 to 1");
    addNumber<std::uint64_t>(app, "--seed N", faults.seed, 0, UINT64_MAX, helpOfSeed);
}

} // namespace Tool
