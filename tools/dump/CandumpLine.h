#pragma once

#include "velk/CANTransportFrame.h"
#include "velk/CANTransportThread.h"

#include <chrono>
#include <optional>
#include <string>

using LogTime = std::optional<std::chrono::microseconds>; ///< None if the line has no time stamp.

/// A frame of a log.
struct LoggedFrame {
    std::string bus;                      ///< Name of the interface.
    std::string sender;                   ///< The id as text: a sender has no other name.
    CANTransportThread::TPCANMsg frame{}; ///< An id of 29 bits is marked by CAN_EFF_FLAG.
    LogTime time;
};

/// @return whether the frame is a flow control.
inline bool isAnswer(const LoggedFrame& logged)
{
    return CANTransportFrame::kindOf(logged.frame.data) == CANTransportFrame::CTP_FLOW_CONTROL;
}

/// @return the classic CAN data frame in a line of `candump -L`, or in a line that candump prints on a
/// terminal, also with a time stamp and the columns of `-x` and `-a`. None if the line holds anything else,
/// such as a remote, error or FD frame.
std::optional<LoggedFrame> parseCandumpLine(const std::string& line);
