#pragma once

#include "velk/Descriptor.h"
#include "velk/TraceMessageBuffer.h"

#include "bus/Frame.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

/// A connection to the bus: one packet for each record, and a queue for a client that does not read. One
/// thread at a time may use it.
class BusNode {
public:
    /// @param connection a non-blocking SOCK_SEQPACKET socket.
    BusNode(Descriptor connection, std::uint64_t nodeNumber);

    const std::uint64_t number; ///< Unique among all nodes that the bus has ever had.
    /// @return the socket; the node owns it.
    int descriptor() const { return socket.get(); }
    /// @return the events that poll() has to wait for.
    short events() const;
    /// Call this when there may be more to read.
    void wake() { exhausted = false; }
    /// @return the client's next frame, in the order of sending; none if none waits. Records that are not
    /// classic frames are counted in `unreadable`.
    std::optional<CANFrame> nextFrame(std::uint64_t& unreadable);

    /// Sends the record of a frame, or queues it.
    /// @return false if `queueLength` records wait already; then the record is dropped.
    bool deliver(const std::vector<unsigned char>& record, std::size_t queueLength);
    /// Sends as much of the queue as the socket takes.
    void flush();
    /// @return whether the client has gone and all its frames have been returned.
    bool gone() const { return dead; }

private:
    void read();
    bool send(const std::vector<unsigned char>& record);

    const Descriptor socket;
    TraceMessageBuffer source;
    bool exhausted = true;
    bool dead = false;
    /// The client has gone or no longer reads. Frames that it has sent are still carried.
    bool deaf = false;
    std::deque<std::vector<unsigned char>> queue;
};
