#pragma once

#include "velk/CANTransportThread.h"
#include "velk/TraceRecord.h"

#include <optional>
#include <vector>

/// A frame on the bus.
using CANFrame = CANTransportThread::TPCANMsg;

/// @return the frame in the record; none if the record holds no frame, or a frame of more than 8 bytes.
std::optional<CANFrame> frameOf(const TraceRecord::View& record);

/// Replaces the content of `record` with the record of the frame.
void serialise(const CANFrame& frame, std::vector<unsigned char>& record);
