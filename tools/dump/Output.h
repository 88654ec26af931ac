// SPDX-License-Identifier: MIT
#pragma once

#include "dump/EndSignals.h"

#include <string>

/// Lines for standard output or a file. After a failure, drops all lines.
class Output {
public:
    /// @param fileName empty for standard output. A file is truncated. @throws Tool::Failure
    Output(EndSignals& endSignals, const std::string& fileName);

    void print(const std::string& line);
    /// Call this before each wait: someone may be watching a live bus.
    void flush();
    /// @return the errno value of the failure, 0 if there was none.
    int error() const { return failure; }
    /// @return what has failed.
    std::string complaint() const;

private:
    int descriptor() const { return file.get() == -1 ? STDOUT_FILENO : file.get(); }

    EndSignals& signals;
    const std::string name;
    Descriptor file; ///< Empty for standard output.
    std::string waiting;
    int failure = 0;
};
