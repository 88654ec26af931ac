#include "bus/BusNode.h"

#include "velk/VelkException.h"

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
    while (!exhausted) {
        try {
            auto message = source.getNextMessage();
            if (message == nullptr) {
                // The packets of a client that has gone without reading its own stand behind an error.
                dead = source.read() == -1 && errno != ECONNRESET;
                message = source.getNextMessage();
            }
            if (message == nullptr) {
                char byte = 0;
                dead = dead || recv(socket.get(), &byte, 1, MSG_PEEK) == 0;
                exhausted = true;
            } else if (const auto frame = frameOf(*message)) {
                return frame;
            } else {
                ++unreadable;
                exhausted = source.empty();
            }
        } catch (const VelkException&) { // behind all records that were read
            ++unreadable;
            exhausted = true;
        }
    }
    return std::nullopt;
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

/// @return false if the client takes nothing now.
bool BusNode::send(const std::vector<unsigned char>& record)
{
    if (deaf || ::send(socket.get(), record.data(), record.size(), MSG_NOSIGNAL) != -1) {
        return true;
    }
    deaf = errno != EAGAIN && errno != EINTR && errno != ENOBUFS && errno != ENOMEM;
    return deaf;
}
