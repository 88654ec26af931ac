// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// The grammar of the frames on the bus, for all code that builds or reads them. docs/frame-format.md
/// describes it with examples.
///
/// `data` always points to the 8 data bytes of a frame.
namespace CANTransportFrame {

/// The kind of a frame: the high nibble of its first data byte. 4 to 15 have no meaning.
enum framekind_t : int {
    CTP_SINGLE_FRAME = 0,
    CTP_FIRST_FRAME = 1,
    CTP_CONSECUTIVE_FRAME = 2,
    CTP_FLOW_CONTROL = 3,
};

/// The code of a flow-control frame: the low nibble of its first data byte. 4 to 15 have no meaning.
enum flowcontrol_t : int {
    CTP_FC_NOT_READY_TO_RECEIVE = 0,
    CTP_FC_READY_TO_RECEIVE = 1,
    CTP_FC_NOT_ACKNOWLEDGE = 2,
    CTP_FC_ACKNOWLEDGE = 3,
};

constexpr std::uint8_t dataBytes = 8;        ///< Data bytes in every frame that is sent.
constexpr unsigned int singleFrameBytes = 7; ///< Message bytes in a single frame, at most.
constexpr unsigned int firstFrameBytes = 6;  ///< Message bytes in a first frame, always.
constexpr unsigned int consecutiveFrameBytes =
    7;                                       ///< Message bytes in a consecutive frame, at most.
constexpr unsigned int sequenceNumbers = 16; ///< 0 to 15, then 0 again.
constexpr unsigned int maxMessageLength = 0x0FFF; ///< Bytes: the length field has 12 bits.

constexpr framekind_t kindOf(const std::uint8_t* data)
{
    return static_cast<framekind_t>(data[0] >> 4);
}

/// Message length, its high bits, sequence number or code: the kind of the frame decides.
constexpr unsigned int lowNibbleOf(const std::uint8_t* data) { return data[0] & 0x0FU; }

constexpr flowcontrol_t codeOf(const std::uint8_t* data)
{
    return static_cast<flowcontrol_t>(lowNibbleOf(data));
}

/// @return length of the message that a first frame announces, in bytes.
constexpr unsigned int announcedLengthOf(const std::uint8_t* data)
{
    return (lowNibbleOf(data) << 8) | data[1];
}

/// @return whether the frame starts a message. A single frame of length 0 or above 7 does not: it is
/// refused.
constexpr bool startsMessage(const std::uint8_t* data)
{
    const bool validSingle = lowNibbleOf(data) >= 1 && lowNibbleOf(data) <= singleFrameBytes;
    return (kindOf(data) == CTP_SINGLE_FRAME && validSingle) || kindOf(data) == CTP_FIRST_FRAME;
}

/// @return the first data byte of a frame. Only the low 4 bits of `lowNibble` count.
constexpr std::uint8_t firstByte(framekind_t kind, unsigned int lowNibble)
{
    return static_cast<std::uint8_t>((static_cast<unsigned int>(kind) << 4) | (lowNibble & 0x0FU));
}

/// @return how many frames carry a message of `length` bytes.
constexpr unsigned int frameCountOf(unsigned int length)
{
    return length <= singleFrameBytes
               ? 1
               : 1 + (length - firstFrameBytes + consecutiveFrameBytes - 1) / consecutiveFrameBytes;
}

} // namespace CANTransportFrame
