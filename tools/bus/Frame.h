#pragma once

#include "velk/CANTransportThread.h"

#include <optional>
#include <vector>

/// What a bus carries.
using CANFrame = CANTransportThread::TPCANMsg;

/// The frame that the message holds; none if it holds none, or one of more than 8 bytes.
std::optional<CANFrame> frameOf(const MessageBase& message);

/// Replaces what `record` holds by the frame's trace message.
void serialise(const CANFrame& frame, std::vector<unsigned char>& record);
