#pragma once

#include "velk/TraceMessage.h"

#include <cstddef>
#include <cstdint>
#include <utility>

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

// Without loops, so that a compiler makes one load or store of each on a little-endian machine.

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

} // namespace TraceFormat
