#pragma once

#include "velk/CANTransportThread.h"

#include <cstdint>

/// How frames carry a message. The page for people is docs/frame-format.md.
namespace FrameFormat {

constexpr std::uint8_t dataBytes = 8;        ///< In every frame that is sent.
constexpr unsigned int singleFrameBytes = 7; ///< Of the message, at most.
constexpr unsigned int firstFrameBytes = 6;  ///< Of the message, always.
constexpr int consecutiveFrameBytes = 7;     ///< Of the message, at most.
constexpr int sequenceNumbers = 16;          ///< 0 to 15, then 0 again.

inline int kindOf(const CANTransportThread::TPCANMsg& frame) { return frame.data[0] >> 4; }

/// Length, sequence number or flow-control code, by the kind.
inline int lowNibbleOf(const CANTransportThread::TPCANMsg& frame) { return frame.data[0] & 0x0F; }

inline std::uint8_t firstByte(int kind, unsigned int lowNibble)
{
    return static_cast<std::uint8_t>((static_cast<unsigned int>(kind) << 4) | (lowNibble & 0x0FU));
}

inline int announcedLengthOf(const CANTransportThread::TPCANMsg& firstFrame)
{
    return (lowNibbleOf(firstFrame) << 8) | firstFrame.data[1];
}

} // namespace FrameFormat
