#pragma once

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

/// For an input whose last read met the end. A socket of packets gives the same for an empty packet.
/// @return whether nothing more will come.
inline bool isEndOfInput(int descriptor)
{
    int type = -1;
    socklen_t size = sizeof type;
    if (getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == -1 || type == SOCK_STREAM) {
        return true;
    }
    // In this order: after a hangup no more packets arrive, but those that wait still count.
    pollfd state{descriptor, POLLRDHUP, 0};
    int left = 0;
    return poll(&state, 1, 0) == 1 && ioctl(descriptor, FIONREAD, &left) == 0 && left == 0;
}
