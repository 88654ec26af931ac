// SPDX-License-Identifier: MIT
#include "common/ClientEvents.h"
#include "common/MessageFormat.h"
#include "common/Options.h"
#include "common/Tool.h"

#include <algorithm>

namespace {

constexpr Tool::Description description{
    "velkcan-recv",
    R"(Prints messages from a peer on a CAN bus, each as a line of hexadecimal bytes. Without
other options it prints one message. The peer gets an acknowledgement when a message has
arrived. Up to 1024 messages wait to be printed; those not printed by the end are lost.
)",
    "-s ID -d ID [options] BUS",
    R"(Example:
  velkcan-recv -s 456 -d 123 -l can0
)"};

using Client = CANTransportClient;

struct Options {
    Tool::Connection connection;
    bool forever = false;
    std::uint64_t count = 1;
    std::uint64_t timeoutMs = 0;
    MessageFormat format;
    bool status = false;
};

void declare(CLI::App& app, Options& options)
{
    Tool::addConnection(app, options.connection);
    constexpr std::uint64_t one = 1;
    constexpr std::uint64_t longestTimeoutMs = INT32_MAX;
    Tool::addNumber(app, "-n N", options.count, one, UINT64_MAX, "Print N messages (default: 1)");
    app.add_flag("-l", options.forever, "Print messages until a signal")->excludes("-n");
    Tool::addNumber(app, "--timeout MS", options.timeoutMs, one, longestTimeoutMs,
                    "End if no message arrives for MS milliseconds (default: wait)");
    addFormat(app, options.format, "Print the bytes as they are",
              "Print a JSON object on each line: time (seconds), id, length,\ndata");
    app.add_flag("--status", options.status,
                 "Print status changes on stderr, with the time of day; with --json\nas JSON");
}

Client::Options clientOptions(const Options& options)
{
    auto result = Tool::clientOptions(options.connection);
    if (!options.forever) { // what is not printed should not be acknowledged
        result.queueLength = std::min<std::uint64_t>(result.queueLength, options.count);
    }
    return result;
}

Client::Message nextMessage(ClientEvents& events, const Options& options)
{
    const auto deadline = options.timeoutMs == 0
                              ? Client::Clock::time_point::max()
                              : Client::Clock::now() + std::chrono::milliseconds(options.timeoutMs);
    while (auto event = events.next(deadline)) {
        if (auto* const message = std::get_if<Client::Message>(&*event)) {
            return std::move(*message);
        }
        const auto* const change = std::get_if<Client::StatusChange>(&*event);
        if (change != nullptr && options.status) {
            printStatus(*change, options.format);
        }
    }
    throw Tool::Failure(Tool::exitFailed,
                        "no message within " + std::to_string(options.timeoutMs) + " ms");
}

int receive(const Options& options)
{
    const Signals signals;
    ClientEvents events(options.connection.bus, clientOptions(options), signals, true);
    for (std::uint64_t left = options.count; options.forever || left > 0; --left) {
        print(nextMessage(events, options), options.format);
    }
    return Tool::exitFine;
}

} // namespace

int main(int count, char** arguments)
{
    return Tool::runProgram(count, arguments, description, declare, receive);
}
