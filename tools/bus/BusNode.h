// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Descriptor.h"

#include "bus/BusCounters.h"
#include "bus/FrameRing.h"
#include "bus/PacketBatch.h"

#include <chrono>
#include <cstddef>
#include <cstdint>

/// A connection to the bus. Each packet is the record of one frame; nothing is kept from one packet to the
/// next. One thread at a time may use it.
class BusNode {
public:
    /// @param connection a non-blocking SOCK_SEQPACKET socket. @param firstPosition the first frame that the
    /// node receives.
    BusNode(Descriptor connection, std::uint64_t nodeNumber, std::uint64_t firstPosition);

    const std::uint64_t number; ///< Unique among all nodes that the bus has ever had.
    /// @return the socket; the node owns it.
    int descriptor() const { return socket.get(); }

    /// Call this with the events of epoll(7).
    void note(std::uint32_t events);
    /// @return the events to wait for.
    std::uint32_t interest() const;
    std::uint32_t watched = 0;                          ///< The events that are waited for.
    std::chrono::steady_clock::time_point restsUntil{}; ///< Nothing is received before.

    /// @return whether a packet may wait.
    bool isReadable() const { return readable; }
    /// Receives the client's next packets. If there are `most`, the node stays
    /// readable. @return how many there are.
    std::size_t receive(PacketBatch& batch, std::size_t most);

    /// Sends the frames from the node's position on, as many as the socket takes.
    void deliver(const FrameRing& ring, PacketBatch& batch, BusCounters& counters);
    /// Gives up the oldest frame of a full ring if the node has not received it.
    void leaveOldest(const FrameRing& ring, BusCounters& counters);
    /// @return whether the client has gone and all its frames have been received.
    bool isGone() const { return gone; }

private:
    void send(PacketBatch& batch, std::size_t count, const std::uint64_t* ends,
              BusCounters& counters);

    const Descriptor socket;
    std::uint64_t position; ///< The next frame for the client.
    bool readable = false;
    bool blocked = false; ///< The socket has no room.
    bool gone = false;
    /// The client no longer reads. Frames that it has sent are still carried.
    bool deaf = false;
};
