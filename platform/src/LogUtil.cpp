// SPDX-License-Identifier: MIT
#include "velk/LogUtil.h"

#include "velk/LogStream.h"

#include <cstdio>
#include <iostream>
#include <new>
#include <system_error>

namespace LogUtil {

std::mutex logMutex;

std::string errorText(int error)
{
    // Not strerror(): a call on another thread could change its text.
    return "errno " + std::to_string(error) + ": " + std::generic_category().message(error);
}

void printError(int error)
{
    LogStream line(std::cerr);
    try {
        line << errorText(error) << '\n';
    } catch (const std::bad_alloc&) {
        line << "errno " << error << '\n';
    }
}

} // namespace LogUtil

std::ostream& operator<<(std::ostream& stream, const timeval& time)
{
    char text[48];
    std::snprintf(text, sizeof text, "%lld.%06lld", static_cast<long long>(time.tv_sec),
                  static_cast<long long>(time.tv_usec));
    return stream << text;
}
