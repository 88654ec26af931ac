#pragma once

#include <locale>
#include <ostream>

/// A stream of its own on the buffer of another one, for log lines.
///
/// Its format is the default one of C++ whatever the program has set on the other stream, and it never
/// throws: a write that fails is lost. The other stream's settings and state stay untouched. Nothing is
/// written to a stream that is not good(): a program can silence the log so. What the stream is tied to
/// is flushed first, and the line is flushed at the end. Takes no lock.
class LogStream : public std::ostream {
public:
    explicit LogStream(std::ostream& destination) : std::ostream(nullptr)
    {
        imbue(std::locale::classic()); // without a buffer yet, so that the other's keeps its locale
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
