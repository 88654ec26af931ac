// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportFrame.h"
#include "velk/TraceRecord.h"

#include <cstdint>
#include <optional>
#include <vector>

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
inline std::optional<TraceRecord::FrameBody> classicFrameIn(const TraceRecord::View& record)
{
    if (!record.isFrame() || record.frame().length > CANTransportFrame::dataBytes) {
        return std::nullopt;
    }
    return record.frame();
}

} // namespace FrameRecord
