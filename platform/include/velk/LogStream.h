// SPDX-License-Identifier: MIT
#pragma once

#include <locale>
#include <ostream>

/// A separate stream on the buffer of another stream, for log lines.
///
/// It uses the default format of C++, whatever the program has set on the other stream. It never throws: a
/// write that fails is lost. The other stream's settings and state do not change. Nothing is written to a
/// stream that is not good(), so a program can silence the log this way. A stream that the other one is tied
/// to is flushed first; the line is flushed at the end. Takes no lock.
class LogStream : public std::ostream {
public:
    explicit LogStream(std::ostream& destination) : std::ostream(nullptr)
    {
        imbue(std::locale::classic()); // before rdbuf(): the other's buffer keeps its locale
        rdbuf(destination.good() ? destination.rdbuf() : nullptr);
        if (destination.tie() != nullptr) {
            flushOther(*destination.tie());
        }
    }
    ~LogStream() override { flush(); }
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;

private:
    static void flushOther(std::ostream& tied) { std::ostream(tied.rdbuf()).flush(); }
};
