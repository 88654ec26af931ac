// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include <unistd.h>

/// Shared by the benchmark programs.
namespace Program {

constexpr int beyondLimit = 4; ///< Exit code.

/// Ends the program. For failures after which a row would measure something else.
[[noreturn]] inline void fail(const char* reason)
{
    std::fflush(stdout);
    std::fprintf(stderr, "%s\n", reason);
    std::_Exit(1);
}

/// Locks and the allocator take cheaper paths in a process with one thread. A process with an endpoint has
/// at least two, so a second one is started first.
inline void startIdleThread()
{
    std::thread([] { ::pause(); }).detach();
}

/// Prints one row of the table: the measured figure, its limit and its aim. Less is always better.
/// @return whether the figure is within the limit; if one is not, the program ends with `beyondLimit`.
inline bool printFigure(const std::string& name, double measured, double atMost, double aim,
                        const std::string& note = "")
{
    std::printf("%s\t%.4g\t%.4g\t%.4g\t%s\n", name.c_str(), measured, atMost, aim, note.c_str());
    return measured <= atMost;
}

} // namespace Program
