#include "velk/LogUtil.h"

#include <cstdio>
#include <iostream>
#include <string>
#include <system_error>

namespace LogUtil {

std::mutex logMutex;

void printError(int error)
{
    // std::to_string and generic_category: neither a format flag of the stream nor another
    // thread's strerror() can change what is written.
    std::cerr << "errno " + std::to_string(error) + ": " + std::generic_category().message(error)
              << std::endl;
}

} // namespace LogUtil

std::ostream& operator<<(std::ostream& stream, const timeval& time)
{
    char text[48];
    std::snprintf(text, sizeof text, "%lld.%06lld", static_cast<long long>(time.tv_sec),
                  static_cast<long long>(time.tv_usec));
    return stream << text;
}
