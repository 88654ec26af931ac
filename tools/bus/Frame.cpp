#include "bus/Frame.h"

#include "common/FrameRecord.h"

#include <algorithm>

std::optional<CANFrame> frameOf(const TraceRecord::View& record)
{
    const auto body = FrameRecord::classicFrameIn(record);
    if (!body) {
        return std::nullopt;
    }
    CANFrame frame{body->canID, body->length, {}};
    std::copy_n(body->data, body->length, frame.data);
    return frame;
}

void serialise(const CANFrame& frame, std::vector<unsigned char>& record)
{
    record.clear();
    FrameRecord::append(record, frame.canID, frame.data, frame.len);
}
