// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Export.h"

#include <cstdint>
#include <exception>
#include <locale>
#include <sstream>
#include <string>

/// An exception that is also an output stream: its text is streamed into it before it is thrown.
///
///     throwVelkException("no such channel: ", channel);
class VELK_EXPORT VelkException : public std::exception, public std::ostringstream {
public:
    VelkException();
    /// Keeps the text; further output is appended to it.
    VelkException(const VelkException& other);
    VelkException& operator=(const VelkException&) = delete;
    ~VelkException() override;

    /// @return the text streamed so far; valid until the next call or the end of the exception.
    const char* what() const noexcept override;

    std::int32_t code = 0; ///< For use by the throwing code; copied with the exception.

private:
    mutable std::string whatText; ///< Keeps the text that what() returned last.
};

/// Writes the exception's text. Takes no lock.
VELK_EXPORT std::ostream& operator<<(std::ostream& stream, const VelkException& exception);

/// Throws an exception whose text consists of the parts.
template <typename... Part> [[noreturn]] void throwVelkException(const Part&... parts)
{
    VelkException exception;
    exception.imbue(std::locale::classic()); // numbers without the grouping of the program's locale
    (exception << ... << parts);
    throw exception;
}
