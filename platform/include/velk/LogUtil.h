// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Export.h"

#include <functional>
#include <iosfwd>
#include <mutex>
#include <string>

#include <sys/time.h>

/// What all log lines of the process share.
namespace LogUtil {

/// Held for one log line. Code that runs under it must not take it again. A client that holds it for its own
/// lines must not call the library at the same time.
VELK_EXPORT extern std::mutex logMutex;

/// Writes the number and the text of an errno value as one line to `std::cerr` and flushes it. The stream's
/// settings do not affect the text, and a write that fails throws nothing. Takes no lock: the caller holds
/// logMutex, so that this line follows the line that it explains.
VELK_EXPORT void printError(int error);

/// @return the number and the text of an errno value: "errno 9: Bad file descriptor".
VELK_EXPORT std::string errorText(int error);

enum class Level { debug, info, error };

/// Receives log lines instead of std::cout and std::cerr, without tag and newline.
using Sink = std::function<void(Level, const std::string& line)>;

} // namespace LogUtil

/// Writes seconds, a point and six digits of microseconds. Does not change the stream's format.
VELK_EXPORT std::ostream& operator<<(std::ostream& stream, const timeval& time);
