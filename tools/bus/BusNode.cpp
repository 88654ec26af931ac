#include "bus/BusNode.h"

#include "velk/VelkException.h"

#include "common/InputEnd.h"

#include <cerrno>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

BusNode::BusNode(Descriptor connection, std::uint64_t nodeNumber)
    : number(nodeNumber),
      socket(std::move(connection)),
      source(socket.get(), nullptr)
{
}

short BusNode::events() const
{
    return static_cast<short>((exhausted ? POLLIN : 0) | (queue.empty() ? 0 : POLLOUT));
}

std::optional<CANFrame> BusNode::nextFrame(std::uint64_t& unreadable)
{
    TraceRecord::View record;
    while (!exhausted) {
        try {
            if (!source.getNextRecord(record)) {
                read();
                exhausted = !source.getNextRecord(record);
            }
            if (exhausted) {
                return std::nullopt;
            }
            if (const auto frame = frameOf(record)) {
                return frame;
            }
            ++unreadable;
            exhausted = source.empty();
        } catch (const VelkException&) { // thrown only after all records that were read
            ++unreadable;
            exhausted = true;
        }
    }
    return std::nullopt;
}

/// After ECONNRESET, packets may still wait: the client has closed its socket without reading all of its own.
void BusNode::read()
{
    const bool failed = source.read() == -1 && errno != ECONNRESET;
    dead = failed || (source.atEnd() && isEndOfInput(socket.get()));
}

bool BusNode::deliver(const std::vector<unsigned char>& record, std::size_t queueLength)
{
    if (queue.empty() && send(record)) {
        return true;
    }
    if (queue.size() >= queueLength) {
        return false;
    }
    queue.push_back(record);
    return true;
}

void BusNode::flush()
{
    while (!queue.empty() && send(queue.front())) {
        queue.pop_front();
    }
}

/// @return false if the socket has no room now.
bool BusNode::send(const std::vector<unsigned char>& record)
{
    if (deaf || ::send(socket.get(), record.data(), record.size(), MSG_NOSIGNAL) != -1) {
        return true;
    }
    deaf = errno != EAGAIN && errno != EINTR && errno != ENOBUFS && errno != ENOMEM;
    return deaf;
}
