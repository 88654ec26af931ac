// SPDX-License-Identifier: MIT
#pragma once

#include "velk/TraceRecord.h"

#include "bus/Frame.h"
#include "bus/FrameRing.h"

#include <array>
#include <cstddef>
#include <optional>

#include <sys/socket.h>
#include <sys/uio.h>

/// Packets that one call receives or sends. One batch serves all nodes of a bus in turn.
class PacketBatch {
public:
    static constexpr std::size_t size = 64;

    PacketBatch()
    {
        for (std::size_t i = 0; i < size; ++i) {
            packets[i].msg_hdr.msg_iov = &parts[i];
            packets[i].msg_hdr.msg_iovlen = 1;
        }
    }

    /// Receives the waiting packets, at most `most`. @return how many; -1 on failure, with errno set.
    int receive(int descriptor, std::size_t most)
    {
        for (std::size_t i = 0; i < most; ++i) {
            parts[i] = {buffers[i].data(), buffers[i].size()};
        }
        return recvmmsg(descriptor, packets.data(), static_cast<unsigned int>(most), MSG_DONTWAIT,
                        nullptr);
    }
    std::size_t sizeOf(std::size_t index) const { return packets[index].msg_len; }
    std::optional<CANFrame> frame(std::size_t index) const
    {
        return frameIn(buffers[index].data(), sizeOf(index));
    }

    /// Makes the record in a slot the packet at `index`.
    void put(std::size_t index, const FrameRing::Slot& slot)
    {
        // NOLINTNEXTLINE(*-const-cast): an iovec is for reading and writing alike
        parts[index] = {const_cast<unsigned char*>(slot.record), slot.size};
    }
    /// Sends the first `count` packets. @return how many the socket took; -1 on failure, with errno set.
    int send(int descriptor, std::size_t count)
    {
        return sendmmsg(descriptor, packets.data(), static_cast<unsigned int>(count),
                        MSG_DONTWAIT | MSG_NOSIGNAL);
    }

private:
    /// A packet that fills the buffer is too long for a classic frame.
    using Buffer = std::array<unsigned char, TraceRecord::frameSize(sizeof CANFrame::data) + 1>;

    std::array<Buffer, size> buffers{};
    std::array<iovec, size> parts{};
    std::array<mmsghdr, size> packets{};
};
