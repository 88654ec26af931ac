#pragma once

#include "velk/CANTransportThread.h"

#include <chrono>
#include <optional>
#include <string>

using LogTime = std::optional<std::chrono::microseconds>; ///< None: the line bears no time stamp.

/// A frame as a log has it.
struct LoggedFrame {
    std::string bus;    ///< Name of the interface.
    std::string sender; ///< The id as the log writes it, the only name that a sender has.
    CANTransportThread::TPCANMsg frame{}; ///< An id of 29 bits is marked by CAN_EFF_FLAG.
    LogTime time;
};

/// The data frame of classic CAN in a line of `candump -L`, or of what candump prints on a terminal,
/// there also behind a time stamp, between the columns of `-x` and `-a`. None if the line holds
/// anything else: remote, error and FD frames too.
std::optional<LoggedFrame> parseLogLine(const std::string& line);
