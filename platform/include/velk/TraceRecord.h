// SPDX-License-Identifier: MIT
#pragma once

#include "velk/TraceMessage.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

/// The serial format of trace messages, for all code that writes or reads records. docs/trace-format.md
/// describes it.
namespace TraceRecord {

constexpr std::uint16_t marker = 0xC5A3;
constexpr unsigned char firstByte = marker & 0xFF; ///< First byte of every record.

// The header: marker (2), id (2), length of the whole record (4), time stamp (8).
constexpr std::size_t idOffset = 2;
constexpr std::size_t lengthOffset = 4;
constexpr std::size_t timeStampOffset = 8;
constexpr std::size_t headerSize = 16;

constexpr std::size_t maxSize = std::size_t{1} << 20;

// The body of a CAN frame: four reserved fields (10), data length (1), CAN id (4), data.
constexpr std::size_t frameLengthOffset = 10;
constexpr std::size_t frameIdOffset = 11;
constexpr std::size_t frameDataOffset = 15;

// The body of a transport message: CAN id (4), a reserved word (4), payload.
constexpr std::size_t transportWordOffset = 4;
constexpr std::size_t transportPayloadOffset = 8;

/// @return size of the record of a frame with `dataLength` data bytes.
constexpr std::size_t frameSize(std::size_t dataLength)
{
    return headerSize + frameDataOffset + dataLength;
}

/// @return size of the record of a message with `payloadLength` bytes.
constexpr std::size_t transportSize(std::size_t payloadLength)
{
    return headerSize + transportPayloadOffset + payloadLength;
}

constexpr bool isFrame(msgid_t id)
{
    return id == CAN_TRACE_MSG || id == CAN_EXT_TRACE_MSG || id == CAN_ALT_TRACE_MSG;
}

// Without loops, so that compilers generate one load or store on a little-endian machine.

template <typename Integer, std::size_t... place>
Integer get(const unsigned char* bytes, std::index_sequence<place...> /*places*/)
{
    return static_cast<Integer>(((static_cast<Integer>(bytes[place]) << (8 * place)) | ...));
}

template <typename Integer> Integer get(const unsigned char* bytes)
{
    return get<Integer>(bytes, std::make_index_sequence<sizeof(Integer)>());
}

template <typename Integer, std::size_t... place>
void put(unsigned char* bytes, Integer value, std::index_sequence<place...> /*places*/)
{
    ((bytes[place] = static_cast<unsigned char>(value >> (8 * place))), ...);
}

template <typename Integer> void put(unsigned char* bytes, Integer value)
{
    put(bytes, value, std::make_index_sequence<sizeof value>());
}

/// Writes the 16 bytes of a header. @param size size of the whole record.
inline void encodeHeader(unsigned char* record, msgid_t id, std::size_t size,
                         unsigned long long timeStamp)
{
    put(record, marker);
    put(record + idOffset, id);
    put(record + lengthOffset, static_cast<std::uint32_t>(size));
    put(record + timeStampOffset, static_cast<std::uint64_t>(timeStamp));
}

/// The body of a frame's record.
struct FrameBody {
    std::uint32_t canID = 0;
    std::uint8_t length = 0;             ///< Number of data bytes, 0 to 64.
    const unsigned char* data = nullptr; ///< Not owned. decodeFrame() points it into the record.
    std::uint8_t reservedByte1 = 0;
    std::uint32_t reservedWord1 = 0;
    std::uint8_t reservedByte2 = 0;
    std::uint32_t reservedWord2 = 0;
};

/// Writes the body, `frameDataOffset + frame.length` bytes.
inline void encodeFrame(unsigned char* body, const FrameBody& frame)
{
    body[0] = frame.reservedByte1;
    put(body + 1, frame.reservedWord1);
    body[5] = frame.reservedByte2;
    put(body + 6, frame.reservedWord2);
    body[frameLengthOffset] = frame.length;
    put(body + frameIdOffset, frame.canID);
    std::copy_n(frame.data, frame.length, body + frameDataOffset);
}

/// Writes the whole record of a `CANExtTraceMessage` with time stamp 0, `frameSize(frame.length)` bytes.
inline void encodeFrameRecord(unsigned char* record, const FrameBody& frame)
{
    encodeHeader(record, CAN_EXT_TRACE_MSG, frameSize(frame.length), 0);
    encodeFrame(record + headerSize, frame);
}

/// @return the fields of a body in the format of encodeFrame().
inline FrameBody decodeFrame(const unsigned char* body)
{
    FrameBody frame;
    frame.reservedByte1 = body[0];
    frame.reservedWord1 = get<std::uint32_t>(body + 1);
    frame.reservedByte2 = body[5];
    frame.reservedWord2 = get<std::uint32_t>(body + 6);
    frame.length = body[frameLengthOffset];
    frame.canID = get<std::uint32_t>(body + frameIdOffset);
    frame.data = body + frameDataOffset;
    return frame;
}

/// A view of a complete record.
struct View {
    msgid_t id = 0;
    const unsigned char* bytes = nullptr; ///< The whole record, with its header. Not owned.
    std::size_t size = 0;

    bool isFrame() const { return TraceRecord::isFrame(id); }
    /// @return the frame in it; only if isFrame().
    FrameBody frame() const { return decodeFrame(bytes + headerSize); }
};

/// @return the record, if the bytes are exactly one valid record.
inline std::optional<View> recordIn(const unsigned char* bytes, std::size_t size)
{
    if (size < headerSize || get<std::uint16_t>(bytes) != marker ||
        get<std::uint32_t>(bytes + lengthOffset) != size) {
        return std::nullopt;
    }
    const View record{get<msgid_t>(bytes + idOffset), bytes, size};
    const bool fits =
        record.isFrame()
            ? size >= frameSize(0) && size == frameSize(record.frame().length) &&
                  size <= frameSize(CANTraceMessageBase::maxDataLength)
            : size <= maxSize && (record.id != CAN_TRANSPORT_TRACE_MSG || size >= transportSize(0));
    return fits ? std::make_optional(record) : std::nullopt;
}

} // namespace TraceRecord
