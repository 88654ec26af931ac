#include "proxy/CANSocket.h"

#include "common/Tool.h"
#include "proxy/ProxyExit.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/socket.h>

namespace {

/// Some thousand frames: a peer may send a whole message before this process runs again.
constexpr int receiveBufferBytes = 1024 * 1024;

[[noreturn]] void failToOpen(const std::string& interface, const std::string& what, int error)
{
    throw Tool::Failure(proxyExitNoInterface,
                        interface + ": " + what + " (" + std::strerror(error) + ")");
}

} // namespace

CANSocket::CANSocket(std::string interfaceName, const std::vector<can_filter>& accepted)
    : interface(std::move(interfaceName)),
      socket(::socket(PF_CAN, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, CAN_RAW))
{
    if (socket.get() == -1) {
        failToOpen(interface, "this kernel has no CAN sockets, expected the module can-raw", errno);
    }
    const std::vector<can_filter> dataFrames = {{0, CAN_RTR_FLAG}};
    const std::vector<can_filter>& filters = accepted.empty() ? dataFrames : accepted;
    if (setsockopt(socket.get(), SOL_CAN_RAW, CAN_RAW_FILTER, filters.data(),
                   static_cast<socklen_t>(filters.size() * sizeof(can_filter))) == -1) {
        fail("cannot set the filter", errno);
    }
    const int on = 1;
    setsockopt(socket.get(), SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
    enlargeReceiveBuffer();
    bindToInterface();
}

void CANSocket::enlargeReceiveBuffer() const
{
    const auto ask = [this](int option) {
        return setsockopt(socket.get(), SOL_SOCKET, option, &receiveBufferBytes,
                          sizeof receiveBufferBytes) == 0;
    };
    if (!ask(SO_RCVBUFFORCE)) { // only an administrator may exceed the system's limit
        ask(SO_RCVBUF);
    }
}

void CANSocket::bindToInterface() const
{
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    // Index 0 would mean all interfaces.
    if (address.can_ifindex == 0) {
        failToOpen(interface, "no such interface, expected one like can0", errno);
    }
    if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1) {
        failToOpen(interface, "no CAN interface, expected one like can0", errno);
    }
}

bool CANSocket::send(const can_frame& frame) const
{
    while (::send(socket.get(), &frame, sizeof frame, 0) == -1) {
        const int error = errno;
        if (error == ENOBUFS || error == EAGAIN) {
            return false;
        }
        if (error != EINTR) {
            fail("cannot send", error);
        }
    }
    return true;
}

std::optional<can_frame> CANSocket::receive()
{
    can_frame frame{};
    iovec data{&frame, sizeof frame};
    alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof drops)];
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    if (recvmsg(socket.get(), &message, 0) == -1) {
        const int error = errno;
        if (error != EAGAIN && error != EINTR) {
            fail("cannot receive", error);
        }
        return std::nullopt;
    }
    const cmsghdr* const part = CMSG_FIRSTHDR(&message);
    if (part != nullptr && part->cmsg_type == SO_RXQ_OVFL) {
        std::memcpy(&drops, CMSG_DATA(part), sizeof drops);
    }
    return frame;
}

void CANSocket::fail(const char* what, int error) const
{
    if (error == ENETDOWN || error == ENODEV || error == ENXIO) {
        throw Tool::Failure(proxyExitBusLost, interface + ": the interface is down or gone");
    }
    throw Tool::Failure(proxyExitFailed,
                        interface + ": " + what + " (" + std::strerror(error) + ")");
}
