#include "dump/Output.h"

#include <algorithm>
#include <cerrno>
#include <climits>

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
        if (!signals.awaitOutput(STDOUT_FILENO)) {
            failure = ETIMEDOUT;
            break;
        }
        // A pipe that is writable takes this without blocking.
        const std::size_t part = std::min<std::size_t>(waiting.size() - done, PIPE_BUF);
        const ssize_t written = write(STDOUT_FILENO, waiting.data() + done, part);
        if (written != -1) {
            done += static_cast<std::size_t>(written);
        } else if (errno != EINTR && errno != EAGAIN) {
            failure = errno;
        }
    }
    waiting.clear();
}
