#include "simulation/Simulation.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>

#include <unistd.h>

namespace {

struct Options {
    std::uint64_t from = 1;
    std::uint64_t seeds = 1000;
    bool trace = false;
};

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
bool runSeed(std::uint64_t seed, const Options& options, Cells& cells, std::ostream& out)
{
    currentSeed = seed;
    try {
        Simulation(seed, cells, options.trace ? &out : nullptr).run();
        return true;
    } catch (const std::exception& broken) {
        out << "seed " << seed << ": " << broken.what() << "\n  velkcan-simulate --seeds 1 --from "
            << seed << " --trace\n";
        return false;
    }
}

int simulate(int argc, char** argv)
{
    Options options;
    CLI::App app{
        "Runs two endpoints through faults in virtual time, and checks what they promise."};
    app.add_option("--seeds", options.seeds, "how many runs")->capture_default_str();
    app.add_option("--from", options.from, "the first seed")->capture_default_str();
    app.add_flag("--trace", options.trace, "print the exchange as a ladder");
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
    for (std::uint64_t seed = options.from; seed < options.from + options.seeds; ++seed) {
        alarm(60); // a run takes milliseconds
        if (!runSeed(seed, options, cells, out)) {
            return 1;
        }
    }
    const int holes = cells.print(out);
    out << options.seeds << " runs kept every promise; " << holes << " cells never met\n";
    const bool enoughToMeetAll = options.seeds >= 1000;
    return enoughToMeetAll && holes > 0 ? 1 : 0;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return simulate(argc, argv);
    } catch (const std::exception& error) {
        std::fputs(error.what(), stderr);
        return 2;
    }
}
