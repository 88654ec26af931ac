// SPDX-License-Identifier: MIT
#include "simulation/Simulation.h"
#include "support/Promise.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>

#include <unistd.h>

namespace {

std::uint64_t currentSeed = 0;

/// An assertion, a sanitizer or a crash ends the program: it tells the seed too.
void tellSeed(int signal)
{
    char text[64];
    const int length = std::snprintf(text, sizeof text, "signal %d in seed %llu\n", signal,
                                     static_cast<unsigned long long>(currentSeed));
    [[maybe_unused]] const ssize_t ignored = write(2, text, static_cast<std::size_t>(length));
}

/// @return whether the run kept all promises.
bool runSeed(std::uint64_t seed, bool trace, Cells& cells, std::ostream& out)
{
    currentSeed = seed;
    try {
        Simulation(seed, cells, trace ? &out : nullptr).run();
        return true;
    } catch (const std::exception& broken) {
        out << "seed " << seed << ": " << broken.what() << "\n  velkcan-simulate --seeds 1 --from "
            << seed << " --trace\n";
        return false;
    }
}

int simulate(int argc, char** argv)
{
    std::uint64_t from = 1;
    std::uint64_t seeds = 1000;
    bool trace = false;
    CLI::App app{
        "Runs two endpoints through faults in virtual time, and checks what they promise."};
    app.add_option("--seeds", seeds, "how many runs")->capture_default_str();
    app.add_option("--from", from, "the first seed")->capture_default_str();
    app.add_flag("--trace", trace, "print the exchange as a ladder");
    CLI11_PARSE(app, argc, argv);

    signal(SIGPIPE, SIG_IGN);
    struct sigaction tell {};
    tell.sa_handler = tellSeed;
    tell.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int fatal : {SIGABRT, SIGSEGV, SIGALRM}) {
        sigaction(fatal, &tell, nullptr);
    }
    std::ostream out(std::cout.rdbuf());
    std::cout.rdbuf(nullptr); // what the endpoints log
    std::cerr.rdbuf(nullptr);
    Cells cells(VELK_CELLS);
    for (std::uint64_t seed = from; seed < from + seeds; ++seed) {
        alarm(60); // a run takes milliseconds
        if (!runSeed(seed, trace, cells, out)) {
            return 1;
        }
    }
    const int holes = cells.print(out);
    out << seeds << " runs kept every promise; " << holes << " cells never met\n";
    return seeds >= 1000 && holes > 0 ? 1 : 0; // fewer do not meet all
}

} // namespace

int main(int argc, char** argv) { return runProgram(simulate, argc, argv); }
