// SPDX-License-Identifier: MIT
#include "LogLine.h"

#include "velk/CANTransportThread.h"
#include "velk/Hexdump.h"

#include <iostream>
#include <locale>
#include <string>
#include <vector>

namespace {

const char* tagOf(LogUtil::Level level)
{
    switch (level) {
    case LogUtil::Level::debug:
        return "[DEBUG] ";
    case LogUtil::Level::info:
        return "[INFO] ";
    case LogUtil::Level::error:
        return "[ERROR] ";
    }
    return "";
}

} // namespace

LogLine::LogLine(const LogUtil::Sink& lineSink, LogUtil::Level lineLevel, std::ostream& destination,
                 const char* operation)
    : sink(lineSink),
      level(lineLevel)
{
    if (sink) {
        text.emplace().imbue(std::locale::classic());
    } else {
        lock = std::unique_lock<std::mutex>(LogUtil::logMutex);
        stream.emplace(destination) << tagOf(level);
    }
    out() << "CANTransportThread::" << operation << "() ";
}

LogLine::~LogLine()
{
    if (sink) {
        try {
            sink(level, text->str());
        } catch (...) { // from the client's function, or no memory: the line is lost
        }
    } else if (!ended) {
        *stream << '\n';
    }
}

void LogLine::explain(int error)
{
    if (sink) {
        const std::string before = text->str();
        out() << (before.back() == ' ' ? "" : " ") << LogUtil::errorText(error);
    } else {
        *stream << '\n';
        stream->flush();
        LogUtil::printError(error);
        ended = true;
    }
}

std::ostream& LogLine::out()
{
    if (sink) {
        return *text;
    }
    return *stream;
}

LogLine CANTransportThread::debugLine(const char* operation) const
{
    return {logSink, LogUtil::Level::debug, std::cout, operation};
}

LogLine CANTransportThread::infoLine(const char* operation) const
{
    return {logSink, LogUtil::Level::info, std::cout, operation};
}

/// An error of the protocol.
LogLine CANTransportThread::errorLine(const char* operation) const
{
    return {logSink, LogUtil::Level::error, std::cout, operation};
}

/// A fault of the client's own code.
LogLine CANTransportThread::clientErrorLine(const char* operation) const
{
    return {logSink, LogUtil::Level::error, std::cerr, operation};
}

/// A failed system call.
void CANTransportThread::logSystemError(const char* operation, const char* text, int error) const
{
    LogLine line(logSink, LogUtil::Level::error, std::cerr, operation);
    line << text;
    line.explain(error);
}

/// Writes the bytes of a record with an unknown id.
void CANTransportThread::logBytes(const std::vector<unsigned char>& bytes) const
{
    const unsigned char* const begin = bytes.data();
    const unsigned char* const end = begin + bytes.size();
    constexpr unsigned int bytesPerLine = 16;
    if (!logSink) {
        hexdump(std::cerr, begin, end, "[ERROR] CANTransportThread:", bytesPerLine, HEXDUMP_OFFSET,
                true);
        return;
    }
    std::stringstream lines;
    hexdump(lines, begin, end, "CANTransportThread:", bytesPerLine, HEXDUMP_OFFSET, true);
    for (std::string line; std::getline(lines, line);) {
        try {
            logSink(LogUtil::Level::error, line);
        } catch (...) { // as in a LogLine
        }
    }
}
