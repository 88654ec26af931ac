// SPDX-License-Identifier: MIT
#include "dump/EndSignals.h"

#include <cerrno>

#include <poll.h>
#include <unistd.h>

bool EndSignals::awaitInput(int descriptor)
{
    pollfd states[] = {
        {descriptor, POLLIN, 0}, {STDOUT_FILENO, 0, 0}, {signals.descriptor(), POLLIN, 0}};
    while (!come && poll(states, 3, -1) == -1 && errno == EINTR) {
    }
    come = come || states[2].revents != 0;
    return !come && (states[1].revents & POLLERR) == 0;
}

bool EndSignals::awaitOutput(int descriptor)
{
    constexpr int graceMs = 1000;
    for (;;) {
        pollfd states[] = {{descriptor, POLLOUT, 0}, {come ? -1 : signals.descriptor(), POLLIN, 0}};
        const int count = poll(states, 2, come ? graceMs : -1);
        if (states[1].revents != 0) {
            come = true;
        } else if (count != -1 || errno != EINTR) {
            return count > 0;
        }
    }
}
