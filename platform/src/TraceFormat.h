#pragma once

#include "velk/TraceMessage.h"

#include <cstddef>
#include <cstdint>

/// The serial form of trace messages: offsets, limits and byte order. The page for people is
/// docs/trace-format.md.
namespace TraceFormat {

constexpr std::uint16_t marker = 0xC5A3;

// The header: marker (2), id (2), length of the whole record (4), time stamp (8).
constexpr std::size_t idOffset = 2;
constexpr std::size_t lengthOffset = 4;
constexpr std::size_t timeStampOffset = 8;
constexpr std::size_t headerSize = 16;

constexpr std::size_t maxRecordSize = std::size_t{1} << 20;

// The body of a CAN frame: four plain members (10), data length (1), CAN id (4), data.
constexpr std::size_t canLengthOffset = 10;
constexpr std::size_t canIdOffset = 11;
constexpr std::size_t canDataOffset = 15;

// The body of a transport message: CAN id (4), a word (4), payload.
constexpr std::size_t transportWordOffset = 4;
constexpr std::size_t transportPayloadOffset = 8;

inline bool isCanFrame(msgid_t id)
{
    return id == CAN_TRACE_MSG || id == CAN_EXT_TRACE_MSG || id == CAN_ALT_TRACE_MSG;
}

template <typename Integer> Integer get(const unsigned char* bytes)
{
    Integer value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i) {
        value = static_cast<Integer>(value | static_cast<Integer>(bytes[i]) << (8 * i));
    }
    return value;
}

template <typename Integer> void put(unsigned char* bytes, Integer value)
{
    for (std::size_t i = 0; i < sizeof value; ++i) {
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

} // namespace TraceFormat
