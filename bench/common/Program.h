#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include <unistd.h>

/// What the programs that measure have in common.
namespace Program {

constexpr int beyondLimit = 4; ///< Exit code.

/// For whatever would let something else be measured than what the row says.
[[noreturn]] inline void fail(const char* reason)
{
    std::fflush(stdout);
    std::fprintf(stderr, "%s\n", reason);
    std::_Exit(1);
}

/// A process with one thread takes cheaper paths in locks and in the allocator than any with an
/// endpoint's thread, so a second one is started first.
inline void startIdleThread()
{
    std::thread([] { ::pause(); }).detach();
}

/// One row of the table: what was measured, the limit that has to hold and the one aimed at. Less is
/// better in all of them.
/// @return whether the limit holds; if one does not, the program ends with `beyondLimit`.
inline bool printFigure(const std::string& name, double measured, double atLeast, double aim,
                        const std::string& note = "")
{
    std::printf("%s\t%.4g\t%.4g\t%.4g\t%s\n", name.c_str(), measured, atLeast, aim, note.c_str());
    return measured <= atLeast;
}

} // namespace Program
