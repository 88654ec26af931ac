// SPDX-License-Identifier: MIT
#include "SocketLink.h"

#include "Failure.h"
#include "Tally.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

namespace {

/// When the peer refuses a burst, few frames should be out of the gate's reach. The kernel raises the size to
/// its minimum.
void makeSendBufferSmall(const Descriptor& socket)
{
    const int bytes = 1;
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
}

/// The record of a frame.
struct Record {
    explicit Record(const Link::Frame& frame) : size(TraceRecord::frameSize(frame.len))
    {
        TraceRecord::encodeFrameRecord(bytes, {frame.canID, frame.len, frame.data, 0, 0, 0, 0});
    }

    const std::size_t size;
    unsigned char bytes[TraceRecord::frameSize(sizeof Link::Frame::data)]{};
};

void limitConnecting(const Descriptor& socket)
{
    const timeval limit{1, 0};
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

} // namespace

std::unique_ptr<Link> connectTo(const std::string& path, Tally& tally)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throwErrno("unix:" + path, ENAMETOOLONG);
    }
    path.copy(address.sun_path, path.size());
    const auto connected = [&](int type) {
        Descriptor socket =
            aboveStandardStreams(Descriptor(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0)));
        if (socket.get() == -1) {
            return socket;
        }
        limitConnecting(socket);
        const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
        int result = 0;
        do {
            result = connect(socket.get(), generic, sizeof address);
        } while (result == -1 && errno == EINTR);
        if (result == -1) {
            const int error = errno;
            socket.reset();
            errno = error;
        }
        return socket;
    };
    Descriptor socket = connected(SOCK_SEQPACKET);
    if (socket.get() != -1) {
        return std::make_unique<PacketLink>(std::move(socket), tally);
    }
    if (errno == EPROTOTYPE) {
        socket = connected(SOCK_STREAM);
        if (socket.get() != -1) {
            return std::make_unique<StreamLink>(std::move(socket), tally);
        }
    }
    throwErrno("unix:" + path, errno == EAGAIN ? ETIMEDOUT : errno);
}

SocketLink::SocketLink(Descriptor connected, Tally& counters)
    : socket(std::move(connected)),
      tally(counters)
{
    makeSendBufferSmall(socket);
    fcntl(socket.get(), F_SETFL, O_NONBLOCK);
}

void SocketLink::add(const TraceRecord::View& record, std::vector<Frame>& frames) const
{
    const TraceRecord::FrameBody body =
        record.isFrame() ? record.frame() : TraceRecord::FrameBody{};
    if (!record.isFrame() || body.length > sizeof Frame::data) {
        countUnusable();
        return;
    }
    Frame frame{body.canID, body.length, {}};
    std::copy_n(body.data, body.length, frame.data);
    frames.push_back(frame);
}

void SocketLink::countUnusable() const { ++tally.recordsUnusable; }

/// A read of an empty packet looks like the end of the input, even if other packets follow.
bool SocketLink::hasEnded() const
{
    pollfd look{socket.get(), POLLRDHUP, 0};
    int waiting = 0;
    return poll(&look, 1, 0) == 1 && ioctl(socket.get(), FIONREAD, &waiting) == 0 && waiting == 0;
}

Link::Sent SocketLink::send(const Frame& frame)
{
    const Record record(frame);
    if (::send(socket.get(), record.bytes, record.size, MSG_NOSIGNAL) != -1) {
        return Sent::done;
    }
    switch (errno) {
    case EAGAIN:
    case EINTR:
    case ENOBUFS:
        return Sent::wouldBlock;
    case EPIPE:
    case ECONNRESET: // frames of the peer may still wait; after them, receive() finds the end
        return Sent::done;
    default:
        return Sent::lost;
    }
}

bool PacketLink::receive(std::vector<Frame>& frames, std::size_t most)
{
    constexpr std::size_t batch = 32;
    constexpr std::size_t room = TraceRecord::frameSize(CANTraceMessageBase::maxDataLength) + 1;
    unsigned char bytes[batch][room];
    iovec parts[batch];
    mmsghdr packets[batch]{};
    for (std::size_t i = 0; i < batch; ++i) {
        parts[i] = {bytes[i], room};
        packets[i].msg_hdr.msg_iov = &parts[i];
        packets[i].msg_hdr.msg_iovlen = 1;
    }
    for (std::size_t taken = 0; taken < most;) {
        const auto wanted = static_cast<unsigned int>(std::min(batch, most - taken));
        const int count = recvmmsg(socket.get(), packets, wanted, MSG_DONTWAIT, nullptr);
        if (count == -1) {
            // After a reset, packets may still wait.
            return errno == EAGAIN || errno == EINTR || errno == ECONNRESET;
        }
        bool emptyPacket = false;
        for (int i = 0; i < count; ++i) {
            const std::size_t size = packets[i].msg_len;
            emptyPacket = size == 0;
            if (emptyPacket) {
                continue;
            }
            if (const auto record = TraceRecord::recordIn(bytes[i], size)) {
                add(*record, frames);
            } else {
                countUnusable();
            }
        }
        if (emptyPacket && hasEnded()) {
            return false;
        }
        if (static_cast<unsigned int>(count) < wanted) {
            return true;
        }
        taken += wanted;
    }
    return true;
}

bool StreamLink::receive(std::vector<Frame>& frames, std::size_t most)
{
    const std::size_t before = frames.size();
    while (frames.size() - before < most) {
        const std::size_t had = frames.size();
        if (records.read() == -1 && errno != ECONNRESET) {
            return false;
        }
        parse(frames);
        if (frames.size() == had) {
            return !(records.atEnd() && hasEnded());
        }
    }
    return true;
}

void StreamLink::parse(std::vector<Frame>& frames)
{
    TraceRecord::View record;
    try {
        while (records.getNextRecord(record)) {
            add(record, frames);
        }
    } catch (const VelkException&) { // bytes that are not a record
        countUnusable();
    }
}
