// SPDX-License-Identifier: MIT
#pragma once

#include "bus/RawSocket.h"
#include "bus/Subject.h"

#include <chrono>
#include <cstring>
#include <string>

/// Sees the frames of the sender pass on the bus. The kernel notes when each came, so nothing has to run
/// for it meanwhile.
class LastFrame {
public:
    explicit LastFrame(const std::string& interface) : socket(rawSocket(interface, idOfSender))
    {
        setOption(socket, SOL_SOCKET, SO_RCVBUFFORCE, 8 * 1024 * 1024);
        setOption(socket, SOL_SOCKET, SO_TIMESTAMPNS, 1);
    }

    /// @return the time since the last frame, in µs.
    double ageUs()
    {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        timespec last{};
        while (take(last)) {
        }
        return static_cast<double>(now.tv_sec - last.tv_sec) * 1e6 +
               static_cast<double>(now.tv_nsec - last.tv_nsec) / 1e3;
    }

private:
    bool take(timespec& arrived)
    {
        can_frame frame{};
        alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof arrived)];
        iovec part{&frame, sizeof frame};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        if (recvmsg(socket.get(), &message, MSG_DONTWAIT) == -1) {
            return false;
        }
        if (const cmsghdr* const header = CMSG_FIRSTHDR(&message)) {
            std::memcpy(&arrived, CMSG_DATA(header), sizeof arrived);
        }
        return true;
    }

    const Descriptor socket;
};
