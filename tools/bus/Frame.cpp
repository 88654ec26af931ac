#include "bus/Frame.h"

#include <algorithm>

std::optional<CANFrame> frameOf(const MessageBase& message)
{
    const auto* const trace = dynamic_cast<const CANTraceMessageBase*>(&message);
    if (trace == nullptr || trace->length > sizeof CANFrame::data) {
        return std::nullopt;
    }
    CANFrame frame{trace->canID, trace->length, {}};
    std::copy_n(trace->data, frame.len, frame.data);
    return frame;
}

void serialise(const CANFrame& frame, std::vector<unsigned char>& record)
{
    CANExtTraceMessage(frame.canID, frame.data, frame.len).createByteArray(record, true, false);
}
