#pragma once

#include "velk/CANTransportThread.h"

#include <string>

/// One line of a ladder: the frame's words on an arrow between the names of two peers.
/// @param fromLeft the left of the two sends. @param arrives whether the arrow ends in a point, or in
/// a cross.
std::string ladderLine(const CANTransportThread::TPCANMsg& frame, const std::string& left,
                       const std::string& right, bool fromLeft, bool arrives = true);
