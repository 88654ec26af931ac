// SPDX-License-Identifier: MIT
#include "bus/BusReport.h"
#include "bus/FaultOptions.h"
#include "bus/VirtualBus.h"
#include "common/Options.h"
#include "common/Signals.h"
#include "common/Tool.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iterator>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>

namespace {

constexpr Tool::Description description{
    "velkcan-bus",
    R"(A CAN bus on a Unix socket, for machines without one. Each connection is a node, and
each packet is one frame as a trace message; every node receives the frames of all
others. Runs until SIGINT, SIGTERM or SIGHUP, then removes the socket and prints its
counters on stderr. SIGUSR1 prints them as a line of JSON.
)",
    "[options] PATH",
    R"(The bus keeps PATH.lock locked while it runs. A packet that is not exactly one record of
a classic frame is refused; a connection too if the bus is full or has no memory or
descriptor for it. Each kind of refusal is reported in at most one line a second. While
others send, a node that floods the bus rests after each of its turns.

Faults affect single frames. All stray frames are of a sort that a receiver can recognise
as wrong.

Example, with one terminal for each command:
  velkcan-bus /tmp/bus

  velkcan-recv -s 456 -d 123 unix:/tmp/bus

  echo 'DE AD BEEF' | velkcan-send -s 123 -d 456 unix:/tmp/bus
)"};

constexpr std::size_t mostNodes = 4096;

struct Options {
    std::string path;
    VirtualBus::Options bus;
};

void declare(CLI::App& app, Options& options)
{
    app.add_option("PATH", options.path, "Path of the socket")->required()->type_name("");
    app.add_option_function<std::string>(
           "--mode",
           [&options](const std::string& text) {
               constexpr mode_t all = 0777;
               if (text.empty() || text.find_first_not_of("01234567") != std::string::npos ||
                   text.size() > 4 || std::stoul(text, nullptr, 8) > all) {
                   throw CLI::ValidationError(
                       "--mode", Tool::complaint(text, "an octal number from 0 to 777"));
               }
               options.bus.mode = static_cast<mode_t>(std::stoul(text, nullptr, 8));
           },
           "Permissions of the socket (default: 600)")
        ->type_name("MODE");
    Tool::addNumber(app, "--bitrate N", options.bus.bitrate, 0UL, 1000000000UL,
                    "Bits per second; a frame of 8 data bytes counts as 125 bits\n"
                    "(default: 0, as fast as possible)");
    Tool::addNumber<std::size_t>(app, "--queue N", options.bus.queueLength, 1, 1000000,
                                 "Frames kept for nodes that read slowly; a node that\n"
                                 "is slower misses the oldest (default: 1024)");
    Tool::addNumber<std::size_t>(app, "--nodes N", options.bus.nodes, 1, mostNodes,
                                 "Connections at one time; more are refused (default: 64)");
    Tool::addFaults(app, options.bus.faults, "Seed of the faults (default: 1)");
}

/// Raises the limit of descriptors as far as the nodes need it and the system permits.
void makeRoomForNodes(std::size_t nodes)
{
    constexpr rlim_t others = 32;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < nodes + others) {
        limit.rlim_cur = std::min<rlim_t>(nodes + others, limit.rlim_max);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

/// Returns after a signal that ends the program. Refusals are reported here, because the thread of the bus must
/// not wait for a terminal.
void report(const VirtualBus& bus, const Signals& signals)
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::seconds interval{1};
    BusCounters reported;
    auto quietUntil = Clock::now();
    for (;;) {
        const bool quiet = Clock::now() < quietUntil;
        pollfd sources[] = {{signals.descriptor(), POLLIN, 0},
                            {quiet ? -1 : bus.refusals(), POLLIN, 0}};
        const auto limit = std::chrono::milliseconds(interval).count();
        poll(sources, std::size(sources), quiet ? static_cast<int>(limit) : -1);
        while (const int number = signals.next()) {
            if (number != SIGUSR1) {
                return;
            }
            BusReport::printJson(bus.counters());
        }
        eventfd_t ignored = 0;
        if (!quiet && eventfd_read(bus.refusals(), &ignored) == 0) {
            const BusCounters now = bus.counters();
            BusReport::printRefusals(reported, now);
            reported = now;
            quietUntil = Clock::now() + interval;
        }
    }
}

int carry(const Options& options)
{
    const Signals signals{SIGUSR1};
    makeRoomForNodes(options.bus.nodes);
    VirtualBus bus(options.path, options.bus);
    Tool::complain(description, "listening on " + options.path);
    report(bus, signals);
    bus.stop();
    BusReport::printSummary(bus.counters());
    return Tool::exitFine;
}

} // namespace

int main(int count, char** arguments)
{
    return Tool::runProgram(count, arguments, description, declare, carry);
}
