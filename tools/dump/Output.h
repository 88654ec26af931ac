#pragma once

#include "dump/EndSignals.h"

#include <string>

/// Lines for standard output. After a failure, drops all lines.
class Output {
public:
    explicit Output(EndSignals& endSignals) : signals(endSignals) {}

    void print(const std::string& line);
    /// Call this before each wait: someone may be watching a live bus.
    void flush();
    /// @return the errno value of the failure, 0 if there was none.
    int error() const { return failure; }

private:
    EndSignals& signals;
    std::string waiting;
    int failure = 0;
};
