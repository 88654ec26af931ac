#pragma once

#include "velk/CANTransportThread.h"

#include <string>

/// @return one line of a ladder: the frame in words on an arrow between the names of two peers.
/// @param fromLeft whether the left peer sends. @param arrives whether the arrow ends in a point or in a
/// cross.
std::string ladderLine(const CANTransportThread::TPCANMsg& frame, const std::string& left,
                       const std::string& right, bool fromLeft, bool arrives = true);
