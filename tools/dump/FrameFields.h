#pragma once

#include "velk/CANTransportThread.h"

#include <cstddef>

inline int kindOf(const CANTransportThread::TPCANMsg& frame) { return frame.data[0] >> 4; }

inline bool isAnswer(const CANTransportThread::TPCANMsg& frame)
{
    return kindOf(frame) == CANTransportThread::CTP_FLOW_CONTROL;
}

/// Length of a single frame, number of a consecutive frame, code of a flow control.
inline unsigned int lowNibble(const CANTransportThread::TPCANMsg& frame)
{
    return frame.data[0] & 0x0FU;
}

inline std::size_t lengthInFirstFrame(const CANTransportThread::TPCANMsg& frame)
{
    return lowNibble(frame) << 8U | frame.data[1];
}

constexpr std::size_t bytesInFirstFrame = 6;
constexpr std::size_t bytesInFrame = 7; ///< In a single or consecutive frame, at most.
