// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportFrame.h"
#include "velk/CANTransportThread.h"
#include "velk/TraceRecord.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include <linux/can.h>

/// Records of classic frames, without creating objects.
namespace FrameRecord {

/// Appends the record of a `CANExtTraceMessage` with time stamp 0.
inline void append(std::vector<unsigned char>& bytes, std::uint32_t canID, const std::uint8_t* data,
                   std::uint8_t length)
{
    const std::size_t start = bytes.size();
    bytes.resize(start + TraceRecord::frameSize(length));
    TraceRecord::encodeFrameRecord(bytes.data() + start, {canID, length, data, 0, 0, 0, 0});
}

/// @return the frame in the record; none if the record holds no frame, or a frame of more than 8 bytes.
inline std::optional<CANTransportThread::TPCANMsg> classicFrameIn(const TraceRecord::View& record)
{
    if (!record.isFrame() || record.frame().length > CANTransportFrame::dataBytes) {
        return std::nullopt;
    }
    const TraceRecord::FrameBody body = record.frame();
    CANTransportThread::TPCANMsg frame{body.canID, body.length, {}};
    std::copy_n(body.data, body.length, frame.data);
    return frame;
}

/// The same for a data frame of an interface. An id above 7FF is marked by CAN_EFF_FLAG.
inline std::optional<CANTransportThread::TPCANMsg> dataFrameIn(const TraceRecord::View& record)
{
    auto frame = classicFrameIn(record);
    if (!frame || (frame->canID & (CAN_RTR_FLAG | CAN_ERR_FLAG)) != 0) {
        return std::nullopt;
    }
    frame->canID |= frame->canID > CAN_SFF_MASK ? CAN_EFF_FLAG : 0U;
    return frame;
}

} // namespace FrameRecord
