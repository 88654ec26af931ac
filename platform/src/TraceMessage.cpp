#include "velk/TraceMessage.h"

#include "HexText.h"
#include "TraceFormat.h"

#include <algorithm>
#include <ostream>
#include <utility>

using TraceFormat::put;

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
    const std::size_t header = withHeader ? TraceFormat::headerSize : 0;
    const std::size_t body = bodySize();
    bytes.resize(start + header + body);
    unsigned char* record = bytes.data() + start;
    if (withHeader) {
        put(record, TraceFormat::marker);
        put(record + TraceFormat::idOffset, id);
        put(record + TraceFormat::lengthOffset, static_cast<std::uint32_t>(header + body));
        put(record + TraceFormat::timeStampOffset, timeStamp);
    }
    writeBody(record + header);
}

std::size_t MessageBase::bodySize() const
{
    return std::max(rawBytes.size(), TraceFormat::headerSize) - TraceFormat::headerSize;
}

void MessageBase::writeBody(unsigned char* body) const
{
    if (rawBytes.size() > TraceFormat::headerSize) {
        std::copy(rawBytes.begin() + TraceFormat::headerSize, rawBytes.end(), body);
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
    return TraceFormat::canDataOffset + std::min<std::size_t>(length, maxDataLength);
}

void CANTraceMessageBase::writeBody(unsigned char* body) const
{
    const auto count = std::min<std::uint8_t>(length, maxDataLength);
    body[0] = reservedByte1;
    put(body + 1, reservedWord1);
    body[5] = reservedByte2;
    put(body + 6, reservedWord2);
    body[TraceFormat::canLengthOffset] = count;
    put(body + TraceFormat::canIdOffset, canID);
    std::copy_n(data, count, body + TraceFormat::canDataOffset);
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
    static_assert(classicRecordSize ==
                  TraceFormat::headerSize + TraceFormat::canDataOffset + dataLength);
    std::fill_n(record, classicRecordSize, static_cast<unsigned char>(0));
    put(record, TraceFormat::marker);
    put(record + TraceFormat::idOffset, CAN_EXT_TRACE_MSG);
    put(record + TraceFormat::lengthOffset, static_cast<std::uint32_t>(classicRecordSize));
    unsigned char* body = record + TraceFormat::headerSize;
    body[TraceFormat::canLengthOffset] = dataLength;
    put(body + TraceFormat::canIdOffset, frameCanID);
    std::copy_n(frameData, dataLength, body + TraceFormat::canDataOffset);
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
    return TraceFormat::transportPayloadOffset + payload.size();
}

void CANTransportTraceMessage::writeBody(unsigned char* body) const
{
    put(body, canID);
    put(body + TraceFormat::transportWordOffset, reservedWord);
    std::copy(payload.begin(), payload.end(), body + TraceFormat::transportPayloadOffset);
}
