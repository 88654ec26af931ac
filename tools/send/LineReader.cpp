// SPDX-License-Identifier: MIT
#include "send/LineReader.h"

#include "common/Tool.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

void LineReader::read()
{
    char bytes[4096];
    const ssize_t count = ::read(descriptor, bytes, sizeof bytes);
    if (count == -1 && errno != EINTR && errno != EAGAIN) {
        throw Tool::Failure(Tool::exitUsage,
                            std::string("cannot read standard input: ") + std::strerror(errno));
    }
    ended = count == 0;
    text.append(bytes, count > 0 ? static_cast<std::size_t>(count) : 0);
    if (text.size() > longestLine && text.find('\n') > longestLine) {
        throw Tool::Failure(Tool::exitUsage, "got a line of more than " +
                                                 std::to_string(longestLine) +
                                                 " bytes, expected one message on each line");
    }
}

std::optional<std::string> LineReader::takeLine()
{
    const std::size_t end = text.find('\n');
    if (end == std::string::npos && !(ended && !text.empty())) {
        return std::nullopt;
    }
    std::string line = text.substr(0, end);
    text.erase(0, end == std::string::npos ? end : end + 1);
    return line;
}
