#include "thread/LogLine.h"

#include "velk/LogUtil.h"

#include <iostream>

LogLine::LogLine(std::ostream& destination, const char* tag, const char* operation)
    : lock(LogUtil::logMutex),
      stream(destination),
      flags(destination.flags(std::ios_base::dec | std::ios_base::skipws)),
      fill(destination.fill(' ')),
      exceptions(destination.exceptions())
{
    stream.exceptions(std::ios_base::goodbit);
    stream << tag << "CANTransportThread::" << operation << "() ";
}

LogLine::~LogLine()
{
    stream.flags(flags);
    stream.fill(fill);
    stream << std::endl;
    try {
        stream.exceptions(exceptions);
    } catch (const std::ios_base::failure&) { // of this line; it is the client's to look at
    }
}

LogLine LogLine::debug(const char* operation) { return {std::cout, "[DEBUG] ", operation}; }

LogLine LogLine::info(const char* operation) { return {std::cout, "[INFO] ", operation}; }

LogLine LogLine::error(const char* operation) { return {std::cout, "[ERROR] ", operation}; }

void LogLine::systemError(const char* operation, const char* text, int error)
{
    const UncancellableScope uncut;
    const std::lock_guard<std::mutex> lock(LogUtil::logMutex);
    std::cerr << "[ERROR] CANTransportThread::" << operation << "() " << text << std::endl;
    LogUtil::printError(error);
}

LogLine LogLine::clientError(const char* operation) { return {std::cerr, "[ERROR] ", operation}; }
