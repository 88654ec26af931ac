// SPDX-License-Identifier: MIT
#pragma once

#include "velk/TraceRecord.h"

#include "bus/Frame.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// The last frames of a bus as records, in the order of the bus. Each node has a position of its own in it, so
/// that a frame is stored once for all nodes, and a node that does not read takes no memory.
class FrameRing {
public:
    struct Slot {
        std::uint64_t sender = 0; ///< The number of its node.
        std::size_t size = 0;
        unsigned char record[TraceRecord::frameSize(sizeof CANFrame::data)]{};
    };

    explicit FrameRing(std::size_t capacity) : slots(capacity) {}

    /// @return the position of the oldest frame.
    std::uint64_t begin() const { return isFull() ? next - slots.size() : 0; }
    /// @return the position of the next frame.
    std::uint64_t end() const { return next; }
    /// @return whether the next frame replaces the oldest one.
    bool isFull() const { return next >= slots.size(); }
    const Slot& at(std::uint64_t position) const { return slots[position % slots.size()]; }

    void add(const CANFrame& frame, std::uint64_t sender)
    {
        Slot& slot = slots[next++ % slots.size()];
        slot.sender = sender;
        slot.size = TraceRecord::frameSize(frame.len);
        TraceRecord::encodeFrameRecord(slot.record,
                                       {frame.canID, frame.len, frame.data, 0, 0, 0, 0});
    }

private:
    std::vector<Slot> slots;
    std::uint64_t next = 0;
};
