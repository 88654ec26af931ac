// SPDX-License-Identifier: MIT
#pragma once

#include "dump/SentFrame.h"

#include <optional>
#include <string>

/// A frame of a log.
struct LoggedFrame {
    std::string bus;                      ///< Name of the interface.
    CANTransportThread::TPCANMsg frame{}; ///< An id of 29 bits is marked by CAN_EFF_FLAG.
    LogTime time;
};

/// @return the classic CAN data frame in a line of `candump -L`, or in a line that candump prints on a
/// terminal, also with a time stamp and the columns of `-x` and `-a`. None if the line holds anything else,
/// such as a remote, error or FD frame.
std::optional<LoggedFrame> parseCandumpLine(const std::string& line);

/// @return the line of `candump -L`. A frame without a time gets time 0.
std::string candumpLine(const LoggedFrame& logged);
