#pragma once

#include <stdexcept>
#include <string>

/// Exit codes of the proxy.
enum ProxyExit : int {
    proxyExitFine = 0,        ///< The end of stdin, with all frames sent, or a signal.
    proxyExitFailed = 1,      ///< Anything that has no code of its own.
    proxyExitUsage = 2,       ///< Wrong arguments.
    proxyExitNoInterface = 3, ///< No such CAN interface, or no CAN in this kernel.
    proxyExitBusLost = 4,     ///< The interface is down or gone.
    proxyExitOutput = 5,      ///< Nobody reads stdout any more.
};

/// Ends the proxy, with the line that it leaves on stderr.
class ProxyFailure : public std::runtime_error {
public:
    ProxyFailure(ProxyExit exitCode, const std::string& text)
        : std::runtime_error(text),
          code(exitCode)
    {
    }

    ProxyExit code;
};
