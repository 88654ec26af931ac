// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportThread.h"
#include "velk/TraceRecord.h"

#include "common/FrameRecord.h"

#include <cstddef>
#include <optional>

/// A frame on the bus.
using CANFrame = CANTransportThread::TPCANMsg;

/// @return the frame in a packet; none if the packet is not exactly one record of a frame of up to 8 bytes.
inline std::optional<CANFrame> frameIn(const unsigned char* packet, std::size_t size)
{
    const auto record = TraceRecord::recordIn(packet, size);
    return record ? FrameRecord::classicFrameIn(*record) : std::nullopt;
}
