#pragma once

/// Exit codes of the proxy, in a Tool::Failure.
enum ProxyExit : int {
    proxyExitFine = 0,        ///< The end of stdin, with all frames sent, or a signal.
    proxyExitFailed = 1,      ///< Anything that has no code of its own.
    proxyExitUsage = 2,       ///< Wrong arguments.
    proxyExitNoInterface = 3, ///< No such CAN interface, or no CAN in this kernel.
    proxyExitBusLost = 4,     ///< The interface is down or gone.
    proxyExitOutput = 5,      ///< Nobody reads stdout any more.
};

constexpr const char* proxyName = "velkcan-proxy";
