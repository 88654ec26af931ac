// SPDX-License-Identifier: MIT
#include "common/ProgressBar.h"

#include <cstdio>

#include <unistd.h>

ProgressBar::ProgressBar() : onTerminal(isatty(STDERR_FILENO) == 1) {}

void ProgressBar::show(std::uint64_t done, std::uint64_t all)
{
    constexpr std::chrono::milliseconds interval{100};
    constexpr int width = 50;
    const auto now = std::chrono::steady_clock::now();
    if (!onTerminal || now - last < interval) {
        return;
    }
    last = now;
    const double share = static_cast<double>(done) / static_cast<double>(all);
    const std::string filled(static_cast<std::size_t>(share * width), '#');
    std::fprintf(stderr, "\r[%-*s] %3.0f %%", width, filled.c_str(), share * 100);
    drawn = true;
}

void ProgressBar::erase()
{
    if (drawn) {
        std::fputs("\r\033[K", stderr);
        drawn = false;
    }
}
