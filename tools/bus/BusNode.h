#pragma once

#include "bus/Frame.h"

#include "velk/Descriptor.h"
#include "velk/TraceMessageBuffer.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

/// A connection to the bus: a packet for each record, and a queue in front of a client that does not
/// read. For one thread at a time.
class BusNode {
public:
    /// @param connection a non-blocking SOCK_SEQPACKET socket.
    BusNode(Descriptor connection, std::uint64_t nodeNumber);

    const std::uint64_t number; ///< No other node of the bus ever has it.
    int descriptor() const { return socket.get(); }
    /// What poll() has to wait for.
    short events() const;
    /// There may be more to read.
    void wake() { exhausted = false; }
    /// The client's next frame, in its order. Counts in `unreadable` what is no classic frame.
    std::optional<CANFrame> nextFrame(std::uint64_t& unreadable);

    /// Sends a frame's record, or queues it. @return false if `queueLength` records wait already.
    bool deliver(const std::vector<unsigned char>& record, std::size_t queueLength);
    /// Sends as much of the queue as the client takes.
    void flush();
    /// The client has gone, and nothing of it is left to carry.
    bool gone() const { return dead; }

private:
    bool send(const std::vector<unsigned char>& record);

    const Descriptor socket;
    TraceMessageBuffer source;
    bool exhausted = true;
    bool dead = false;
    bool deaf = false; ///< The client has gone or reads no more; what it has sent still counts.
    std::deque<std::vector<unsigned char>> queue;
};
