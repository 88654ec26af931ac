// SPDX-License-Identifier: MIT
#include "dump/Output.h"

#include "common/Tool.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <system_error>

Output::Output(EndSignals& endSignals, const std::string& fileName)
    : signals(endSignals),
      name(fileName.empty() ? "standard output" : "'" + fileName + "'")
{
    if (!fileName.empty()) {
        // The open of a named pipe must not wait for its reader: no signal would end it.
        constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
        file = aboveStandardStreams(Descriptor(open(fileName.c_str(), flags, 0666)));
        if (file.get() == -1) {
            failure = errno;
            throw Tool::Failure(Tool::exitOutput, complaint());
        }
    }
}

std::string Output::complaint() const
{
    return "cannot write " + name + ": " + std::generic_category().message(failure);
}

void Output::print(const std::string& line)
{
    constexpr std::size_t enough = 65536;
    waiting += line;
    waiting += '\n';
    if (waiting.size() >= enough) {
        flush();
    }
}

void Output::flush()
{
    for (std::size_t done = 0; done < waiting.size() && failure == 0;) {
        if (!signals.awaitOutput(descriptor())) {
            failure = ETIMEDOUT;
            break;
        }
        // A pipe that is writable takes this without blocking.
        const std::size_t part = std::min<std::size_t>(waiting.size() - done, PIPE_BUF);
        const ssize_t written = write(descriptor(), waiting.data() + done, part);
        if (written != -1) {
            done += static_cast<std::size_t>(written);
        } else if (errno != EINTR && errno != EAGAIN) {
            failure = errno;
        }
    }
    waiting.clear();
}
