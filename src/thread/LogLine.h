#pragma once

#include "velk/CancellableScope.h"

#include <ios>
#include <mutex>
#include <ostream>

/// One line of the log, from its tag to the newline and the flush. Holds LogUtil::logMutex while it
/// lives, so it has to end with its statement. The stream's format is the default one meanwhile,
/// whatever the client has set on it. No stop cuts it, and it never throws.
class LogLine {
public:
    static LogLine debug(const char* operation);
    static LogLine info(const char* operation);
    /// An error of the protocol.
    static LogLine error(const char* operation);

    /// The line of a failed system call with the text of `error` behind it, all on std::cerr.
    static void systemError(const char* operation, const char* text, int error);
    /// A fault of the client's own code, on std::cerr.
    static LogLine clientError(const char* operation);

    ~LogLine();
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    template <typename Value> LogLine& operator<<(const Value& value)
    {
        stream << value;
        return *this;
    }
    LogLine& operator<<(std::ios_base& (*manipulator)(std::ios_base&))
    {
        stream << manipulator;
        return *this;
    }

    std::ostream& out() { return stream; }

private:
    LogLine(std::ostream& destination, const char* tag, const char* operation);

    const UncancellableScope uncut;
    const std::lock_guard<std::mutex> lock;
    std::ostream& stream;
    const std::ios_base::fmtflags flags;
    const char fill;
    const std::ios_base::iostate exceptions;
};
