#pragma once

#include "velk/CANTransportGate.h"

#include "common/FrameRecord.h"

#include <algorithm>
#include <optional>

#include <linux/can.h>

/// A frame as the kernel, a record and the gate have it.
namespace FrameForms {

/// @return the frame in the record; none if it holds no classic data frame.
inline std::optional<can_frame> frameIn(const TraceRecord::View& record)
{
    constexpr canid_t noDataFrame = CAN_RTR_FLAG | CAN_ERR_FLAG;
    const auto body = FrameRecord::classicFrameIn(record);
    if (!body || (body->canID & noDataFrame) != 0) {
        return std::nullopt;
    }
    can_frame frame{};
    frame.can_id = body->canID > CAN_SFF_MASK ? body->canID | CAN_EFF_FLAG : body->canID;
    frame.can_dlc = body->length;
    std::copy_n(body->data, body->length, frame.data);
    return frame;
}

inline can_frame toCANFrame(const CANTransportGate::Frame& own)
{
    can_frame frame{};
    frame.can_id = own.canID;
    frame.can_dlc = own.len;
    std::copy_n(own.data, own.len, frame.data);
    return frame;
}

inline CANTransportGate::Frame toGateFrame(const can_frame& frame)
{
    CANTransportGate::Frame own{frame.can_id, frame.can_dlc, {}};
    std::copy_n(frame.data, frame.can_dlc, own.data);
    return own;
}

} // namespace FrameForms
