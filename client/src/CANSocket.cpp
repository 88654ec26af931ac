// SPDX-License-Identifier: MIT
#include "velk/CANSocket.h"

#include "Failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/socket.h>

namespace {

/// Room for some thousand frames: a peer may send a whole message before this process runs again.
constexpr int receiveBufferBytes = 1024 * 1024;

/// Room for about 12 frames: the kernel doubles the number, and counts 768 bytes for a frame.
constexpr int smallSendBufferBytes = 4608;

void setOption(const Descriptor& socket, int level, int option, int value)
{
    setsockopt(socket.get(), level, option, &value, sizeof value); // on failure the default stays
}

} // namespace

CANSocket::CANSocket(std::string interfaceName, const std::vector<can_filter>& accepted,
                     SendBuffer sendBuffer)
    : interface(std::move(interfaceName)),
      socket(aboveStandardStreams(
          Descriptor(::socket(PF_CAN, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, CAN_RAW))))
{
    if (socket.get() == -1) {
        throwErrno(interface + ": this kernel has no CAN sockets, expected the module can-raw",
                   errno);
    }
    const std::vector<can_filter> dataFrames = {{0, CAN_RTR_FLAG}};
    const std::vector<can_filter>& filters = accepted.empty() ? dataFrames : accepted;
    if (setsockopt(socket.get(), SOL_CAN_RAW, CAN_RAW_FILTER, filters.data(),
                   static_cast<socklen_t>(filters.size() * sizeof(can_filter))) == -1) {
        throwErrno(interface + ": cannot set the filter", errno);
    }
    setOption(socket, SOL_SOCKET, SO_RXQ_OVFL, 1);
    setBuffers(sendBuffer);
    bindToInterface();
}

CANSocket::~CANSocket() = default;

void CANSocket::setBuffers(SendBuffer sendBuffer) const
{
    setOption(socket, SOL_SOCKET, SO_RCVBUF, receiveBufferBytes);
    setOption(socket, SOL_SOCKET, SO_RCVBUFFORCE, receiveBufferBytes); // beyond the system's limit
    if (sendBuffer == SendBuffer::small) {
        setOption(socket, SOL_SOCKET, SO_SNDBUF, smallSendBufferBytes);
    }
}

void CANSocket::bindToInterface() const
{
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    // Index 0 would mean all interfaces.
    if (address.can_ifindex == 0) {
        throwErrno(interface + ": no such interface, expected one like can0", errno);
    }
    if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1) {
        throwErrno(interface + ": no CAN interface, expected one like can0", errno);
    }
}

CANSocket::Result CANSocket::send(const can_frame& frame)
{
    while (::send(socket.get(), &frame, sizeof frame, MSG_NOSIGNAL) == -1) {
        if (errno != EINTR) {
            return errno == ENOBUFS ? Result::queueFull : resultOf(errno);
        }
    }
    return Result::done;
}

CANSocket::Result CANSocket::send(const can_frame* frames, std::size_t count, std::size_t& sent)
{
    constexpr std::size_t batch = 32;
    iovec parts[batch];
    mmsghdr messages[batch]{};
    for (sent = 0; sent < count;) {
        const std::size_t next = std::min(count - sent, batch);
        for (std::size_t i = 0; i < next; ++i) {
            // NOLINTNEXTLINE(*-const-cast): an iovec is for reading and writing alike
            parts[i] = {const_cast<can_frame*>(frames + sent + i), sizeof *frames};
            messages[i].msg_hdr.msg_iov = &parts[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        const int taken =
            sendmmsg(socket.get(), messages, static_cast<unsigned int>(next), MSG_NOSIGNAL);
        if (taken > 0) { // perhaps fewer than `next`: the next call says why
            sent += static_cast<std::size_t>(taken);
        } else if (errno != EINTR) {
            return errno == ENOBUFS ? Result::queueFull : resultOf(errno);
        }
    }
    return Result::done;
}

/// Room for some frames, each with the count of missed frames.
struct CANSocket::Batch {
    static constexpr std::size_t size = 32;

    Batch()
    {
        for (std::size_t i = 0; i < size; ++i) {
            parts[i] = {&frames[i], sizeof frames[i]};
            messages[i].msg_hdr.msg_iov = &parts[i];
            messages[i].msg_hdr.msg_iovlen = 1;
            messages[i].msg_hdr.msg_control = controls[i].bytes;
            messages[i].msg_hdr.msg_controllen = sizeof controls[i].bytes;
        }
    }

    struct alignas(cmsghdr) Control {
        unsigned char bytes[CMSG_SPACE(sizeof(std::uint32_t))];
    };
    can_frame frames[size]{};
    iovec parts[size]{};
    Control controls[size]{};
    mmsghdr messages[size]{};
};

CANSocket::Result CANSocket::receive(std::vector<can_frame>& frames, std::size_t most)
{
    while (most > 0) {
        Batch batch;
        const auto room = static_cast<unsigned int>(std::min(most, Batch::size));
        const int count = recvmmsg(socket.get(), batch.messages, room, MSG_DONTWAIT, nullptr);
        if (count == -1) {
            if (errno == EINTR) {
                continue;
            }
            return resultOf(errno);
        }
        const auto taken = static_cast<std::size_t>(count);
        frames.insert(frames.end(), batch.frames, batch.frames + taken);
        const cmsghdr* const part = CMSG_FIRSTHDR(&batch.messages[taken - 1].msg_hdr);
        if (part != nullptr && part->cmsg_type == SO_RXQ_OVFL) {
            std::memcpy(&drops, CMSG_DATA(part), sizeof drops);
        }
        if (taken < room) {
            return Result::wouldBlock;
        }
        most -= taken;
    }
    return Result::done;
}

CANSocket::Result CANSocket::resultOf(int errorNumber)
{
    if (errorNumber == EAGAIN || errorNumber == EWOULDBLOCK) {
        return Result::wouldBlock;
    }
    lastError = errorNumber;
    const bool down = errorNumber == ENETDOWN || errorNumber == ENODEV || errorNumber == ENXIO;
    return down ? Result::down : Result::failed;
}
