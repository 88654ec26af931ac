// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

/// A bar on the last line of a terminal on stderr. Draws nothing if stderr is not a terminal.
class ProgressBar {
public:
    ProgressBar();
    ~ProgressBar() { erase(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// Draws the bar again, at most every 100 ms. @param all not 0.
    void show(std::uint64_t done, std::uint64_t all);
    void erase();

private:
    const bool onTerminal;
    bool drawn = false;
    std::chrono::steady_clock::time_point last{};
};
