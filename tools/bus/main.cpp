#include "bus/VirtualBus.h"
#include "common/Options.h"
#include "common/Tool.h"

#include <csignal>
#include <cstdio>

namespace {

constexpr Tool::Description description{
    "velkcan-bus",
    R"(A CAN bus on a Unix socket, for machines without one. Each connection is a node, and
each packet is one frame as a trace message; every node receives the frames of all
others. Runs until SIGINT or SIGTERM, then prints its counters on stderr.
)",
    "[options] PATH",
    R"(Exit status: 0 ended by a signal; 2 wrong arguments; 3 the socket cannot be created.

Example, with one terminal for each command:
  velkcan-bus /tmp/bus

  velkcan-recv -s 456 -d 123 unix:/tmp/bus

  echo 'DE AD BEEF' | velkcan-send -s 123 -d 456 unix:/tmp/bus
)"};

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
                                 "Frames that may wait for one node; more are dropped\n"
                                 "(default: 1024)");
}

int carry(const Options& options)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    VirtualBus bus(options.path, options.bus);
    int signal = 0;
    sigwait(&signals, &signal);
    bus.stop();
    const VirtualBus::Counters counters = bus.counters();
    std::fprintf(stderr,
                 "%s: %llu nodes, %llu frames carried, %llu delivered, %llu dropped, "
                 "%llu unreadable\n",
                 description.name, static_cast<unsigned long long>(counters.nodes),
                 static_cast<unsigned long long>(counters.carried),
                 static_cast<unsigned long long>(counters.delivered),
                 static_cast<unsigned long long>(counters.overflowDrops),
                 static_cast<unsigned long long>(counters.unreadable));
    return Tool::exitFine;
}

} // namespace

int main(int count, char** arguments)
{
    return Tool::runProgram(count, arguments, description, declare, carry);
}
