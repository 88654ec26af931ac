// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Export.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

/// The kind of a trace message.
using msgid_t = std::uint16_t;

constexpr msgid_t CAN_TRACE_MSG = 1;
constexpr msgid_t CAN_EXT_TRACE_MSG = 11;
constexpr msgid_t CAN_ALT_TRACE_MSG = 0x8012;
constexpr msgid_t CAN_TRANSPORT_TRACE_MSG = 0x8014;

/// Base of all trace messages: the records that pass through the pipes. A value type: one thread at a time
/// may use it.
class VELK_EXPORT MessageBase {
public:
    explicit MessageBase(msgid_t messageId, unsigned long long timeStampValue = 0);
    virtual ~MessageBase();

    /// Writes the message in text form, without a newline, and returns the stream. Takes no lock.
    virtual std::ostream& print(std::ostream& stream) const;

    /// Serialises the whole message into `bytes`, in the format of docs/trace-format.md.
    /// @param withHeader false leaves out the 16 bytes of the header.
    /// @param append true adds the message to the content of the vector; false replaces it.
    void createByteArray(std::vector<unsigned char>& bytes, bool withHeader, bool append) const;

    std::string text; ///< Free for the application; not serialised.
    /// The whole record as it was received, for an id that TraceMessageBuffer does not know;
    /// otherwise empty.
    std::vector<unsigned char> rawBytes;
    msgid_t id;
    unsigned long long timeStamp; ///< Carried unchanged; the application chooses the unit.

protected:
    MessageBase(const MessageBase&) = default;
    MessageBase(MessageBase&&) = default;
    MessageBase& operator=(const MessageBase&) = default;
    MessageBase& operator=(MessageBase&&) = default;

private:
    virtual std::size_t bodySize() const;
    virtual void writeBody(unsigned char* body) const;
};

/// One CAN frame; the base of the three kinds of frame messages.
class VELK_EXPORT CANTraceMessageBase : public MessageBase {
public:
    static constexpr std::size_t maxDataLength = 64;

    ~CANTraceMessageBase() override;
    std::ostream& print(std::ostream& stream) const override;

    // For other users of the trace; the transport sends 0 and never reads them.
    std::uint8_t reservedByte1 = 0;
    std::uint32_t reservedWord1 = 0;
    std::uint8_t reservedByte2 = 0;
    std::uint32_t reservedWord2 = 0;
    std::uint8_t length; ///< Number of data bytes.
    std::uint32_t canID;
    unsigned char data[maxDataLength] = {};

protected:
    /// Copies `dataLength` bytes, at most 64.
    CANTraceMessageBase(msgid_t messageId, std::uint32_t frameCanID, const unsigned char* frameData,
                        std::uint8_t dataLength, unsigned long long timeStampValue);
    CANTraceMessageBase(const CANTraceMessageBase&) = default;
    CANTraceMessageBase& operator=(const CANTraceMessageBase&) = default;

private:
    std::size_t bodySize() const override;
    void writeBody(unsigned char* body) const override;
};

class VELK_EXPORT CANTraceMessage : public CANTraceMessageBase {
public:
    CANTraceMessage(std::uint32_t canID, const unsigned char* data, std::uint8_t length,
                    unsigned long long timeStamp = 0);
    ~CANTraceMessage() override;
};

class VELK_EXPORT CANExtTraceMessage : public CANTraceMessageBase {
public:
    CANExtTraceMessage(std::uint32_t canID, const unsigned char* data, std::uint8_t length,
                       unsigned long long timeStamp = 0);
    ~CANExtTraceMessage() override;

    static constexpr std::size_t classicRecordSize = 39; ///< With 8 data bytes.
    /// Writes the same record as createByteArray(), with the header and time stamp 0, without creating an
    /// object. @param record room for `classicRecordSize` bytes. @param data 8 bytes.
    static void writeClassicRecord(unsigned char* record, std::uint32_t canID,
                                   const unsigned char* data);
};

class VELK_EXPORT CANAltTraceMessage : public CANTraceMessageBase {
public:
    CANAltTraceMessage(std::uint32_t canID, const unsigned char* data, std::uint8_t length,
                       unsigned long long timeStamp = 0);
    ~CANAltTraceMessage() override;
};

/// Writes the frame in text form, as print() does. Takes no lock.
VELK_EXPORT std::ostream& operator<<(std::ostream& stream, const CANExtTraceMessage& message);

/// One whole byte message: a request to send it, or a received message.
class VELK_EXPORT CANTransportTraceMessage : public MessageBase {
public:
    explicit CANTransportTraceMessage(std::vector<unsigned char> payload, std::uint32_t canID = 0,
                                      unsigned long long timeStamp = 0);
    ~CANTransportTraceMessage() override;
    std::ostream& print(std::ostream& stream) const override;

    static constexpr std::size_t maxPayload = 4095; ///< Bytes that the transport carries.
    std::vector<unsigned char> payload;
    std::uint32_t canID; ///< Of the frame that completed the message; unused in a request.
    std::uint32_t reservedWord = 0;

private:
    std::size_t bodySize() const override;
    void writeBody(unsigned char* body) const override;
};
