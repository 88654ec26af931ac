// SPDX-License-Identifier: MIT
#include "velk/TraceMessage.h"

#include "velk/TraceRecord.h"

#include "HexText.h"

#include <algorithm>
#include <ostream>
#include <utility>

using TraceRecord::put;

MessageBase::MessageBase(msgid_t messageId, unsigned long long timeStampValue)
    : id(messageId),
      timeStamp(timeStampValue)
{
}

MessageBase::~MessageBase() = default;

std::ostream& MessageBase::print(std::ostream& stream) const
{
    return stream << "trace message 0x" + hexText(id, 4) + ", "
                  << std::to_string(rawBytes.size()) + " bytes";
}

void MessageBase::createByteArray(std::vector<unsigned char>& bytes, bool withHeader,
                                  bool append) const
{
    if (!append) {
        bytes.clear();
    }
    const std::size_t start = bytes.size();
    const std::size_t body = bodySize();
    if (withHeader) {
        const std::size_t record = TraceRecord::headerSize + body;
        bytes.resize(start + record);
        TraceRecord::encodeHeader(bytes.data() + start, id, record, timeStamp);
    } else {
        bytes.resize(start + body);
    }
    writeBody(bytes.data() + bytes.size() - body);
}

std::size_t MessageBase::bodySize() const
{
    return std::max(rawBytes.size(), TraceRecord::headerSize) - TraceRecord::headerSize;
}

void MessageBase::writeBody(unsigned char* body) const
{
    if (rawBytes.size() > TraceRecord::headerSize) {
        std::copy(rawBytes.begin() + TraceRecord::headerSize, rawBytes.end(), body);
    }
}

CANTraceMessageBase::CANTraceMessageBase(msgid_t messageId, std::uint32_t frameCanID,
                                         const unsigned char* frameData, std::uint8_t dataLength,
                                         unsigned long long timeStampValue)
    : MessageBase(messageId, timeStampValue),
      length(std::min<std::uint8_t>(dataLength, maxDataLength)),
      canID(frameCanID)
{
    std::copy_n(frameData, length, data);
}

CANTraceMessageBase::~CANTraceMessageBase() = default;

std::ostream& CANTraceMessageBase::print(std::ostream& stream) const
{
    std::string line = "CAN frame 0x" + hexText(canID, 3) + " [" + std::to_string(length) + "]";
    for (std::size_t i = 0; i < std::min<std::size_t>(length, maxDataLength); ++i) {
        line += ' ' + hexText(data[i], 2);
    }
    return stream << line;
}

std::size_t CANTraceMessageBase::bodySize() const
{
    return TraceRecord::frameDataOffset + std::min<std::size_t>(length, maxDataLength);
}

void CANTraceMessageBase::writeBody(unsigned char* body) const
{
    TraceRecord::encodeFrame(body, {canID, std::min<std::uint8_t>(length, maxDataLength), data,
                                    reservedByte1, reservedWord1, reservedByte2, reservedWord2});
}

CANTraceMessage::CANTraceMessage(std::uint32_t frameCanID, const unsigned char* frameData,
                                 std::uint8_t dataLength, unsigned long long timeStampValue)
    : CANTraceMessageBase(CAN_TRACE_MSG, frameCanID, frameData, dataLength, timeStampValue)
{
}

CANTraceMessage::~CANTraceMessage() = default;

CANExtTraceMessage::CANExtTraceMessage(std::uint32_t frameCanID, const unsigned char* frameData,
                                       std::uint8_t dataLength, unsigned long long timeStampValue)
    : CANTraceMessageBase(CAN_EXT_TRACE_MSG, frameCanID, frameData, dataLength, timeStampValue)
{
}

CANExtTraceMessage::~CANExtTraceMessage() = default;

void CANExtTraceMessage::writeClassicRecord(unsigned char* record, std::uint32_t frameCanID,
                                            const unsigned char* frameData)
{
    constexpr std::uint8_t dataLength = 8;
    static_assert(classicRecordSize == TraceRecord::frameSize(dataLength));
    TraceRecord::encodeFrameRecord(record, {frameCanID, dataLength, frameData, 0, 0, 0, 0});
}

std::ostream& operator<<(std::ostream& stream, const CANExtTraceMessage& message)
{
    return message.print(stream);
}

CANAltTraceMessage::CANAltTraceMessage(std::uint32_t frameCanID, const unsigned char* frameData,
                                       std::uint8_t dataLength, unsigned long long timeStampValue)
    : CANTraceMessageBase(CAN_ALT_TRACE_MSG, frameCanID, frameData, dataLength, timeStampValue)
{
}

CANAltTraceMessage::~CANAltTraceMessage() = default;

CANTransportTraceMessage::CANTransportTraceMessage(std::vector<unsigned char> messagePayload,
                                                   std::uint32_t messageCanID,
                                                   unsigned long long timeStampValue)
    : MessageBase(CAN_TRANSPORT_TRACE_MSG, timeStampValue),
      payload(std::move(messagePayload)),
      canID(messageCanID)
{
}

CANTransportTraceMessage::~CANTransportTraceMessage() = default;

std::ostream& CANTransportTraceMessage::print(std::ostream& stream) const
{
    return stream << "transport message 0x" + hexText(canID, 3) + ", " +
                         std::to_string(payload.size()) + " bytes";
}

std::size_t CANTransportTraceMessage::bodySize() const
{
    return TraceRecord::transportPayloadOffset + payload.size();
}

void CANTransportTraceMessage::writeBody(unsigned char* body) const
{
    put(body, canID);
    put(body + TraceRecord::transportWordOffset, reservedWord);
    std::copy(payload.begin(), payload.end(), body + TraceRecord::transportPayloadOffset);
}
