#pragma once

/// Exit codes of the proxy.
enum ProxyExit : int {
    proxyExitFine = 0,        ///< Stdin has ended and all frames are sent, or a signal arrived.
    proxyExitFailed = 1,      ///< Any other failure.
    proxyExitUsage = 2,       ///< Wrong arguments.
    proxyExitNoInterface = 3, ///< No such CAN interface, or no CAN in this kernel.
    proxyExitBusLost = 4,     ///< The interface is down or gone.
    proxyExitOutput = 5,      ///< Stdout has no reader, or the last frames were not taken.
};

constexpr const char* proxyName = "velkcan-proxy";
