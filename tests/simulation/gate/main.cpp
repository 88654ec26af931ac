// SPDX-License-Identifier: MIT
#include "simulation/gate/Exchange.h"
#include "support/Promise.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <iomanip>
#include <iostream>

namespace {

constexpr Time fast = 130;  // a frame at 1 Mbit/s
constexpr Time slow = 1000; // and at 125 kbit/s

constexpr Conditions rows[] = {
    {"none", 1, 400, fast, 0, 0, 0},
    {"0.1 % lost", 1, 400, fast, 0.001, 0, 0},
    {"0.5 % lost", 1, 400, fast, 0.005, 0, 0},
    {"2 % lost", 1, 400, fast, 0.02, 0, 0},
    {"0.2 % doubled", 1, 400, fast, 0, 0.002, 0},
    {"0.2 % strays", 1, 400, fast, 0, 0, 0.002},
    {"0.1 % of each", 1, 400, fast, 0.001, 0.001, 0.001},
    {"0.1 % of each, 125 kbit/s", 1, 400, slow, 0.001, 0.001, 0.001},
    {"0.5 % lost, 0.5 % doubled", 1, 400, fast, 0.005, 0.005, 0},
    {"5 % lost, 5 % doubled", 1, 7, fast, 0.05, 0.05, 0},
    {"none", 2000, 4095, fast, 0, 0, 0},
    {"none, 125 kbit/s", 2000, 4095, slow, 0, 0, 0},
    {"0.1 % lost", 2000, 4095, fast, 0.001, 0, 0},
    {"0.5 % lost", 2000, 4095, fast, 0.005, 0, 0},
    {"0.2 % doubled", 2000, 4095, fast, 0, 0.002, 0},
    {"0.2 % strays", 2000, 4095, fast, 0, 0, 0.002},
    {"0.1 % of each", 2000, 4095, fast, 0.001, 0.001, 0.001},
};

struct Options {
    std::uint64_t from = 1;
    std::uint64_t seeds = 1000;
    std::uint64_t longSeeds = 10;
    bool table = false;
};

Tally runRow(const Conditions& row, int gates, const Options& options, Cells& cells)
{
    const bool longMessages = row.shortest >= 2000;
    const std::uint64_t count = longMessages ? options.longSeeds : options.seeds;
    Tally tally;
    for (std::uint64_t seed = options.from; seed < options.from + count; ++seed) {
        Exchange exchange(seed, row, gates, cells);
        exchange.run();
        exchange.addTo(tally);
    }
    return tally;
}

/// What two gates promise. Without faults no frame is sent twice.
bool kept(const Conditions& row, const Tally& tally)
{
    const bool faultless = row.lost + row.doubled + row.strays == 0;
    return tally.givenUp == 0 && tally.falseOnes * 500 <= (row.strays > 0 ? tally.messages : 0) &&
           (!faultless || row.frameTime == slow || tally.frames == tally.framesNeeded);
}

void print(std::ostream& out, const Tally& tally)
{
    const auto messages = static_cast<double>(tally.messages);
    out << " | " << tally.acknowledged << ", " << tally.givenUp << ", " << tally.falseOnes << ", "
        << tally.twice << " | " << static_cast<double>(tally.frames) / messages << " | "
        << static_cast<double>(tally.time) / ms / messages;
}

int simulate(int argc, char** argv)
{
    Options options;
    CLI::App app{
        "Two clients send each other 10 messages at once through faults, in virtual time.\n"
        "Each column: acknowledged and delivered, given up, acknowledged and not delivered,\n"
        "delivered twice | frames a message | ms a message"};
    app.add_option("--seeds", options.seeds, "exchanges for each row")->capture_default_str();
    app.add_option("--long-seeds", options.longSeeds, "the same, where messages are long")
        ->capture_default_str();
    app.add_option("--from", options.from, "the first seed")->capture_default_str();
    app.add_flag("--table", options.table, "also without a gate, and with one on one side");
    CLI11_PARSE(app, argc, argv);

    signal(SIGPIPE, SIG_IGN);
    std::ostream out(std::cout.rdbuf());
    std::cout.rdbuf(nullptr); // what the endpoints log
    std::cerr.rdbuf(nullptr);
    out << std::fixed << std::setprecision(1);
    Cells cells(VELK_CELLS);
    bool allKept = true;
    for (const Conditions& row : rows) {
        out << "| " << row.faults << " | " << row.shortest << " to " << row.longest;
        for (int gates = options.table ? 0 : 2; gates < 2; ++gates) {
            print(out, runRow(row, gates, options, cells));
        }
        const Tally tally = runRow(row, 2, options, cells);
        print(out, tally);
        out << (kept(row, tally) ? " |\n" : " | BROKEN\n") << std::flush;
        allKept = allKept && kept(row, tally);
    }
    const bool enoughToMeetAll = options.seeds >= 1000;
    const int holes = cells.print(out);
    return allKept && (holes == 0 || !enoughToMeetAll) ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) { return runProgram(simulate, argc, argv); }
