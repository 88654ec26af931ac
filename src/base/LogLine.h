// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CancellableScope.h"
#include "velk/LogStream.h"
#include "velk/LogUtil.h"

#include <ios>
#include <mutex>
#include <optional>
#include <ostream>
#include <sstream>

/// One line of the log: for a stream with its tag, newline and flush, or the text for the sink. Without a
/// sink it holds LogUtil::logMutex while it lives, so it must not outlive its statement. A stop does not cut
/// it. A stream or sink that fails or throws does not affect the protocol.
class LogLine {
public:
    LogLine(const LogUtil::Sink& lineSink, LogUtil::Level lineLevel, std::ostream& destination,
            const char* operation);
    ~LogLine();
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    template <typename Value> LogLine& operator<<(const Value& value)
    {
        out() << value;
        return *this;
    }
    LogLine& operator<<(std::ios_base& (*manipulator)(std::ios_base&))
    {
        out() << manipulator;
        return *this;
    }
    /// Adds the text of an errno value: on a new line on std::cerr, or on the same line for a sink.
    void explain(int error);

    std::ostream& out();

private:
    const UncancellableScope uncut;
    const LogUtil::Sink& sink;
    const LogUtil::Level level;
    std::unique_lock<std::mutex> lock;
    std::optional<LogStream> stream;        ///< Without a sink.
    std::optional<std::ostringstream> text; ///< For a sink.
    bool ended = false;                     ///< The newline is written.
};
