// SPDX-License-Identifier: MIT
#pragma once

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

/// Call this when a read has met the end of the input. On a packet socket, an empty packet looks the same.
/// @return whether the input has really ended.
inline bool isEndOfInput(int descriptor)
{
    int type = -1;
    socklen_t size = sizeof type;
    if (getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == -1 || type == SOCK_STREAM) {
        return true;
    }
    // In this order: after a hangup no more packets arrive, but some may still wait.
    pollfd state{descriptor, POLLRDHUP, 0};
    int left = 0;
    return poll(&state, 1, 0) == 1 && ioctl(descriptor, FIONREAD, &left) == 0 && left == 0;
}
