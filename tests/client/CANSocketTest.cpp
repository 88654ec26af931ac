// SPDX-License-Identifier: MIT
#include "velk/CANSocket.h"

#include "CANLink.h"
#include "Tally.h"
#include "client/Waiting.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/socket.h>

namespace {

/// The kernel's side of the only CAN socket: a pair of packet sockets stands for it.
struct Kernel {
    int client = -1;
    Descriptor bus;
    std::map<std::string, std::deque<int>> errors; ///< Of the next calls; 0: that one is good.
    std::map<std::pair<int, int>, std::string> settings; ///< By level and option.
    int boundTo = 0;
    std::uint32_t drops = 0;
} kernel;

/// Takes the CAN socket's number back, which will be that of another one.
struct Scope {
    Scope() { kernel = {}; }
    ~Scope() { kernel = {}; }
};

/// @return whether this call of the CAN socket fails; errno says how.
bool fails(const char* call)
{
    auto& errors = kernel.errors[call];
    errno = errors.empty() ? 0 : errors.front();
    if (!errors.empty()) {
        errors.pop_front();
    }
    return errno != 0;
}

template <typename Value> std::string raw(const Value& value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

} // namespace

#define WRAP(result, name, parameters)                                                             \
    result real_##name parameters asm("__real_" #name);                                            \
    result wrap_##name parameters asm("__wrap_" #name);                                            \
    result wrap_##name parameters

WRAP(int, socket, (int domain, int type, int protocol))
{
    if (domain != PF_CAN) {
        return real_socket(domain, type, protocol);
    }
    EXPECT_EQ(type, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC);
    int ends[2];
    if (fails("socket") || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends) == -1) {
        return -1;
    }
    kernel.bus = Descriptor(ends[1]);
    return kernel.client = ends[0];
}

WRAP(int, bind, (int fd, const sockaddr* address, socklen_t size))
{
    if (address->sa_family != AF_CAN) {
        return real_bind(fd, address, size);
    }
    kernel.boundTo = reinterpret_cast<const sockaddr_can*>(address)->can_ifindex;
    return fails("bind") ? -1 : 0;
}

WRAP(int, setsockopt, (int fd, int level, int option, const void* value, socklen_t size))
{
    if (level == SOL_CAN_RAW) { // it may have got another number
        kernel.client = fd;
    }
    if (fd != kernel.client) {
        return real_setsockopt(fd, level, option, value, size);
    }
    kernel.settings[{level, option}].assign(static_cast<const char*>(value), size);
    return fails("setsockopt") ? -1 : 0;
}

WRAP(unsigned int, if_nametoindex, (const char* name))
{
    errno = ENODEV;
    return std::strcmp(name, "can7") == 0 ? 7 : 0;
}

WRAP(ssize_t, send, (int fd, const void* bytes, size_t size, int flags))
{
    return fd == kernel.client && fails("send") ? -1 : real_send(fd, bytes, size, flags);
}

/// As the kernel does, reports an error only for the first of the messages.
WRAP(int, sendmmsg, (int fd, mmsghdr* messages, unsigned int count, int flags))
{
    for (unsigned int i = 0; fd == kernel.client && i < count; ++i) {
        const iovec& part = *messages[i].msg_hdr.msg_iov;
        if (wrap_send(fd, part.iov_base, part.iov_len, flags) == -1) {
            return i == 0 ? -1 : static_cast<int>(i);
        }
    }
    return fd == kernel.client ? static_cast<int>(count)
                               : real_sendmmsg(fd, messages, count, flags);
}

WRAP(int, recvmmsg, (int fd, mmsghdr* messages, unsigned int room, int flags, timespec* timeout))
{
    if (fd == kernel.client && fails("recvmmsg")) {
        return -1;
    }
    const int count = real_recvmmsg(fd, messages, room, flags, timeout);
    for (int i = 0; fd == kernel.client && i < count; ++i) {
        msghdr& header = messages[i].msg_hdr;
        auto* const part = static_cast<cmsghdr*>(header.msg_control);
        *part = {CMSG_LEN(sizeof kernel.drops), SOL_SOCKET, SO_RXQ_OVFL};
        std::memcpy(CMSG_DATA(part), &kernel.drops, sizeof kernel.drops);
        header.msg_controllen = kernel.drops != 0 ? CMSG_SPACE(sizeof kernel.drops) : 0;
    }
    return count;
}

TEST(CANSocket, isAFilteredLinkWithFewFramesBeyondReach)
{
    const Scope scope;
    Tally tally;
    const auto link = openLink("can7", 0x123, tally);
    EXPECT_EQ(link->descriptor(), kernel.client);
    EXPECT_EQ(kernel.boundTo, 7);
    const can_filter filter{0x123, CAN_SFF_MASK | CAN_EFF_FLAG | CAN_RTR_FLAG};
    const std::map<std::pair<int, int>, std::string> settings{
        {{SOL_CAN_RAW, CAN_RAW_FILTER}, raw(filter)},
        {{SOL_SOCKET, SO_RXQ_OVFL}, raw(1)},
        {{SOL_SOCKET, SO_SNDBUF}, raw(4608)},
        {{SOL_SOCKET, SO_RCVBUF}, raw(1 << 20)},
        {{SOL_SOCKET, SO_RCVBUFFORCE}, raw(1 << 20)}};
    EXPECT_EQ(kernel.settings, settings);

    kernel.errors["send"] = {EINTR, 0, EAGAIN, ENOBUFS, ENETDOWN, EIO};
    for (const auto expected : {Link::Sent::done, Link::Sent::wouldBlock, Link::Sent::queueFull,
                                Link::Sent::lost, Link::Sent::lost}) {
        EXPECT_EQ(link->send({0x321, 3, {1, 2, 3, 4}}), expected);
    }
    can_frame sent{};
    EXPECT_EQ(recv(kernel.bus.get(), &sent, sizeof sent, 0), ssize_t{sizeof sent});
    can_frame same{};
    same.can_id = 0x321;
    same.can_dlc = 3;
    std::memcpy(same.data, "\1\2\3", 3);
    EXPECT_EQ(raw(sent), raw(same));

    std::vector<Link::Frame> frames;
    EXPECT_TRUE(link->receive(frames, 5));
    for (const std::uint8_t length : std::vector<std::uint8_t>{8, 9, 0}) {
        can_frame frame{0x123, {length}, 0, 0, 0, {}};
        frame.data[7] = length;
        EXPECT_NE(real_send(kernel.bus.get(), &frame, sizeof frame, 0), -1);
    }
    kernel.drops = 4;
    kernel.errors["recvmmsg"] = {EINTR};
    EXPECT_TRUE(link->receive(frames, 2));
    EXPECT_EQ(frames.size(), 2U);
    EXPECT_TRUE(link->receive(frames, 5));
    ASSERT_EQ(frames.size(), 3U);
    EXPECT_EQ(frames[0].canID, 0x123U);
    EXPECT_EQ(frames[0].len, 8);
    EXPECT_EQ(frames[0].data[7], 8);
    EXPECT_EQ(frames[1].len, 8) << "no frame has more";
    EXPECT_EQ(frames[2].len, 0);
    EXPECT_EQ(tally.framesMissed, 4U);
    CANLink next("can7", 0x123, tally);
    kernel.errors["recvmmsg"] = {ENETDOWN};
    EXPECT_FALSE(next.receive(frames, 1));
    EXPECT_EQ(tally.framesMissed, 4U) << "counted over all connections";
}

TEST(CANSocket, sendsManyFramesAndSaysHowManyBeforeOneIsRefused)
{
    const Scope scope;
    CANSocket socket("can7", {});
    std::vector<can_frame> frames(40);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        frames[i].can_id = static_cast<canid_t>(i);
    }
    kernel.errors["send"] = std::deque<int>(35);
    kernel.errors["send"].push_back(ENOBUFS); // meets a call that has sent three
    kernel.errors["send"].push_back(ENOBUFS);
    std::size_t sent = 0;
    EXPECT_EQ(socket.send(frames.data(), frames.size(), sent), CANSocket::Result::queueFull);
    EXPECT_EQ(sent, 35U);
    EXPECT_EQ(socket.send(frames.data() + 35, 5, sent), CANSocket::Result::done);
    EXPECT_EQ(sent, 5U);
    for (const can_frame& frame : frames) {
        can_frame arrived{};
        EXPECT_EQ(recv(kernel.bus.get(), &arrived, sizeof arrived, 0), ssize_t{sizeof arrived});
        EXPECT_EQ(arrived.can_id, frame.can_id);
    }
}

TEST(CANSocket, saysWhyItDoesNotOpenAndWhatIsWrong)
{
    const struct {
        const char* call;
        const char* name;
        int error;
    } cases[] = {{"", "can8", ENODEV},
                 {"socket", "can7", EAFNOSUPPORT},
                 {"setsockopt", "can7", EINVAL},
                 {"bind", "can7", ENODEV}};
    for (const auto& entry : cases) {
        const Scope scope;
        kernel.errors[entry.call] = {entry.error};
        const auto exception = thrownBy([&] { CANSocket(entry.name, {}); });
        EXPECT_EQ(exception.code, entry.error);
        EXPECT_EQ(exception.str().substr(0, 5), entry.name + std::string(":"));
    }
    const Scope scope;
    CANSocket socket("can7", {});
    EXPECT_EQ(socket.name(), "can7");
    const can_filter all{0, CAN_RTR_FLAG};
    EXPECT_EQ((kernel.settings[{SOL_CAN_RAW, CAN_RAW_FILTER}]), raw(all));
    EXPECT_EQ(kernel.settings.count({SOL_SOCKET, SO_SNDBUF}), 0U);
    using R = CANSocket::Result;
    for (const auto& [error, result] :
         {std::pair(ENETDOWN, R::down), {ENODEV, R::down}, {ENXIO, R::down}, {EIO, R::failed}}) {
        kernel.errors["recvmmsg"] = {error};
        std::vector<can_frame> frames;
        EXPECT_EQ(socket.receive(frames, 1), result);
        EXPECT_EQ(socket.error(), error);
    }
    EXPECT_EQ(socket.missed(), 0U);
    const Descriptor input(dup(STDIN_FILENO));
    close(STDIN_FILENO);
    EXPECT_GT(CANSocket("can7", {}).descriptor(), STDERR_FILENO);
    dup2(input.get(), STDIN_FILENO);
    Tally tally;
    for (const char* bus : {"", "a/b", "can8"}) {
        const auto exception = thrownBy([&] { openLink(bus, 1, tally); });
        const bool names = exception.str().find("exec:COMMAND") != std::string::npos;
        EXPECT_EQ(names, bus != std::string("can8")) << exception.str();
        EXPECT_EQ(exception.code, names ? 0 : ENODEV);
    }
}
