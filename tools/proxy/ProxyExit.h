#pragma once

/// Exit codes of the proxy.
enum ProxyExit : int {
    proxyExitFine = 0,        ///< Stdin has ended and all frames are sent, or a signal came.
    proxyExitFailed = 1,      ///< Any other failure.
    proxyExitUsage = 2,       ///< Wrong arguments.
    proxyExitNoInterface = 3, ///< No such CAN interface, or no CAN in this kernel.
    proxyExitBusLost = 4,     ///< The interface is down or gone.
    proxyExitOutput = 5,      ///< Nobody reads stdout any more.
};

constexpr const char* proxyName = "velkcan-proxy";
