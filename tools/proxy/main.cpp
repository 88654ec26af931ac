#include "proxy/CANSocket.h"
#include "proxy/Proxy.h"
#include "proxy/ProxyFailure.h"
#include "proxy/ProxyOptions.h"
#include "proxy/Signals.h"

#include <exception>
#include <iostream>

namespace {

int complain(const char* text, ProxyExit code)
{
    std::cerr << proxyName << ": " << text << std::endl;
    return code;
}

int carry(const ProxyOptions& options)
{
    const Signals signals;
    CANSocket bus(options.interface, options.accepted);
    Proxy proxy(bus, signals);
    int exitCode = proxyExitFine;
    try {
        proxy.run();
    } catch (const ProxyFailure& failure) {
        exitCode = complain(failure.what(), failure.code);
    }
    proxy.printCounters();
    return exitCode;
}

} // namespace

int main(int argc, char** argv)
{
    int exitCode = proxyExitFine;
    const auto options = readCommandLine(argc, argv, exitCode);
    if (!options) {
        return exitCode;
    }
    try {
        return carry(*options);
    } catch (const ProxyFailure& failure) {
        return complain(failure.what(), failure.code);
    } catch (const std::exception& failure) {
        return complain(failure.what(), proxyExitFailed);
    }
}
