#pragma once

#include "velk/Export.h"

#include <iosfwd>
#include <mutex>

#include <sys/time.h>

/// What all log lines of the process share.
namespace LogUtil {

/// Held for one log line. Code that runs under it must not take it again; a client that holds it
/// around its own lines must not call into the library meanwhile.
VELK_EXPORT extern std::mutex logMutex;

/// Writes the number and the text of an errno value as one line to `std::cerr` and flushes it.
/// Takes no lock: the caller holds logMutex, so that the line stays behind the one it explains.
VELK_EXPORT void printError(int error);

} // namespace LogUtil

/// Writes seconds, a point and six digits of microseconds. Leaves the stream's format as it was.
VELK_EXPORT std::ostream& operator<<(std::ostream& stream, const timeval& time);
