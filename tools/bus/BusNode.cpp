// SPDX-License-Identifier: MIT
#include "bus/BusNode.h"

#include "common/InputEnd.h"

#include <cerrno>
#include <utility>

#include <sys/epoll.h>
#include <sys/socket.h>

namespace {

/// Half of what a node may take of the kernel's memory; the kernel doubles the number.
constexpr int sendBufferBytes = 64 * 1024;

} // namespace

BusNode::BusNode(Descriptor connection, std::uint64_t nodeNumber, std::uint64_t firstPosition)
    : number(nodeNumber),
      socket(std::move(connection)),
      position(firstPosition)
{
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &sendBufferBytes, sizeof sendBufferBytes);
}

void BusNode::note(std::uint32_t events)
{
    if ((events & EPOLLOUT) != 0) {
        blocked = false;
    }
    if ((events & ~static_cast<std::uint32_t>(EPOLLOUT)) != 0) {
        readable = true;
    }
}

std::uint32_t BusNode::interest() const
{
    return (readable ? 0U : EPOLLIN) | (blocked ? EPOLLOUT : 0U);
}

std::size_t BusNode::receive(PacketBatch& batch, std::size_t most)
{
    readable = false;
    const int received = batch.receive(socket.get(), most);
    if (received == -1) {
        // After a reset, packets may still wait: the client has closed its socket without reading its own.
        gone = errno != EAGAIN && errno != EINTR && errno != ECONNRESET;
        return 0;
    }
    auto count = static_cast<std::size_t>(received);
    if (batch.sizeOf(count - 1) == 0 && isEndOfInput(socket.get())) {
        gone = true;
        while (count > 0 && batch.sizeOf(count - 1) == 0) {
            --count;
        }
    }
    readable = count == most;
    return count;
}

void BusNode::deliver(const FrameRing& ring, PacketBatch& batch, BusCounters& counters)
{
    while (!blocked && position != ring.end()) {
        std::uint64_t ends[PacketBatch::size]; // the position after each packet
        std::size_t count = 0;
        std::uint64_t next = position;
        for (; next != ring.end() && count < PacketBatch::size; ++next) {
            if (ring.at(next).sender != number && !deaf) {
                batch.put(count, ring.at(next));
                ends[count++] = next + 1;
            }
        }
        if (count == 0) {
            position = next;
        } else {
            send(batch, count, ends, counters);
        }
    }
}

/// Packets that the socket refuses stay in the ring.
void BusNode::send(PacketBatch& batch, std::size_t count, const std::uint64_t* ends,
                   BusCounters& counters)
{
    const int sent = batch.send(socket.get(), count);
    if (sent > 0) {
        counters.delivered += static_cast<std::uint64_t>(sent);
        position = ends[sent - 1];
        return;
    }
    switch (errno) {
    case EAGAIN:
    case EINTR:
        blocked = true;
        return;
    case ENOBUFS:
    case ENOMEM: // poll() would report the socket as writable at once
        ++counters.overflowDrops;
        position = ends[0];
        return;
    default:
        deaf = true;
    }
}

void BusNode::leaveOldest(const FrameRing& ring, BusCounters& counters)
{
    if (position == ring.begin()) {
        counters.overflowDrops += ring.at(position).sender == number || deaf ? 0U : 1U;
        ++position;
    }
}
