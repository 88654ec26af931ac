#include "common/Tool.h"
#include "proxy/CANSocket.h"
#include "proxy/Proxy.h"
#include "proxy/ProxyExit.h"
#include "proxy/ProxyOptions.h"
#include "proxy/Signals.h"

namespace {

constexpr Tool::Description description{
    proxyName,
    "Carries CAN frames between stdin and stdout, where they are serialised trace messages, and "
    "an\n"
    "interface. A full queue of the interface holds stdin up; no frame is lost, repeated or out of "
    "order.\n",
    "[--accept ID[:MASK]]... [--quiet] IFACE",
    "Only data frames of classic CAN come through. SIGUSR1 and the end print the counters on "
    "stderr.\n"
    "\n"
    "Exit status: 0 stdin is at its end and all is sent, or a signal; 1 any other failure; 2 "
    "wrong\n"
    "arguments; 3 no such interface, or no CAN here; 4 the interface is down or gone; 5 nobody "
    "reads\n"
    "stdout any more, or the client has gone altogether and the interface takes none of its last\n"
    "frames.\n"
    "\n"
    "Example, a message to a device on the bus of another machine:\n"
    "  velkcan-send -s 123 -d 321 -D 20 'exec:ssh gateway velkcan-proxy --accept 321 can0'\n",
    proxyExitFailed};

int carry(const ProxyOptions& options)
{
    const Signals signals;
    CANSocket bus(options.interface, options.accepted);
    Proxy proxy(bus, signals);
    int exitCode = proxyExitFine;
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
