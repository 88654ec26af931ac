// SPDX-License-Identifier: MIT
#include "velk/CANSocket.h"
#include "velk/VelkException.h"

#include "common/Signals.h"
#include "common/Tool.h"
#include "proxy/Proxy.h"
#include "proxy/ProxyOptions.h"

#include <csignal>
#include <optional>

namespace {

constexpr Tool::Description description{
    "velkcan-proxy",
    R"(Carries CAN frames between an interface and stdin and stdout, where each frame is a
serialised trace message. While the interface has no room, stdin is not read; no frame is
lost, repeated or reordered.
)",
    "[--accept ID[:MASK|~MASK]]... [--gate] [--quiet] IFACE",
    R"(Only classic CAN data frames pass. The proxy prints its counters on stderr when it gets
SIGUSR1 and when it ends. SIGINT, SIGTERM and SIGHUP end it.

If the client has gone and the interface does not take its last frames, the proxy ends with
status 4.

Example, a message to a device on the bus of another machine:
  velkcan-send -s 123 -d 321 -D 20 'exec:ssh gateway velkcan-proxy --accept 321 can0'
)",
    Tool::exitFailed};

int carry(const ProxyOptions& options)
{
    const Signals signals{SIGUSR1};
    std::optional<CANSocket> bus;
    try {
        const auto buffer =
            options.gate ? CANSocket::SendBuffer::small : CANSocket::SendBuffer::standard;
        bus.emplace(options.interface, options.accepted, buffer);
    } catch (const VelkException& error) {
        throw Tool::Failure(Tool::exitBus, error.what());
    }
    Proxy proxy(*bus, signals, options.gate);
    int exitCode = Tool::exitFine;
    try {
        proxy.run();
    } catch (const Tool::Failure& failure) {
        Tool::complain(description, failure.what());
        exitCode = failure.exitCode;
    }
    if (!options.quiet) {
        proxy.printCounters();
    }
    return exitCode;
}

} // namespace

int main(int count, char** arguments)
{
    return Tool::runProgram(count, arguments, description, declare, carry);
}
