// SPDX-License-Identifier: MIT
#include "TraceParser.h"

#include <vector>

using TraceRecord::get;

namespace {

template <typename Frame> std::unique_ptr<MessageBase> parseFrame(const TraceRecord::View& record)
{
    const TraceRecord::FrameBody body = record.frame();
    auto frame = std::make_unique<Frame>(body.canID, body.data, body.length);
    frame->reservedByte1 = body.reservedByte1;
    frame->reservedWord1 = body.reservedWord1;
    frame->reservedByte2 = body.reservedByte2;
    frame->reservedWord2 = body.reservedWord2;
    return frame;
}

std::unique_ptr<MessageBase> parseTransport(const TraceRecord::View& record)
{
    const unsigned char* body = record.bytes + TraceRecord::headerSize;
    const unsigned char* payload = body + TraceRecord::transportPayloadOffset;
    auto message = std::make_unique<CANTransportTraceMessage>(
        std::vector<unsigned char>(payload, record.bytes + record.size), get<std::uint32_t>(body));
    message->reservedWord = get<std::uint32_t>(body + TraceRecord::transportWordOffset);
    return message;
}

std::unique_ptr<MessageBase> parseUnknown(const TraceRecord::View& record)
{
    auto message = std::make_unique<MessageBase>(record.id);
    message->rawBytes.assign(record.bytes, record.bytes + record.size);
    return message;
}

std::unique_ptr<MessageBase> parseById(const TraceRecord::View& record)
{
    switch (record.id) {
    case CAN_TRACE_MSG:
        return parseFrame<CANTraceMessage>(record);
    case CAN_EXT_TRACE_MSG:
        return parseFrame<CANExtTraceMessage>(record);
    case CAN_ALT_TRACE_MSG:
        return parseFrame<CANAltTraceMessage>(record);
    case CAN_TRANSPORT_TRACE_MSG:
        return parseTransport(record);
    default:
        return parseUnknown(record);
    }
}

} // namespace

std::unique_ptr<MessageBase> parseRecord(const TraceRecord::View& record)
{
    auto message = parseById(record);
    message->timeStamp = get<std::uint64_t>(record.bytes + TraceRecord::timeStampOffset);
    return message;
}
