// SPDX-License-Identifier: MIT
#include "velk/VelkException.h"

VelkException::VelkException() = default;

VelkException::VelkException(const VelkException& other)
    : std::basic_ios<char>(),
      std::exception(other),
      std::ostringstream(other.str(), std::ios_base::ate),
      code(other.code)
{
}

VelkException::~VelkException() = default;

const char* VelkException::what() const noexcept
{
    try {
        whatText = str();
        return whatText.c_str();
    } catch (...) {
        return "VelkException (no memory for its text)";
    }
}

std::ostream& operator<<(std::ostream& stream, const VelkException& exception)
{
    return stream << exception.str();
}
