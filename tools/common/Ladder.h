// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportThread.h"

#include <string>

/// @return one line of a ladder diagram: the frame in words on an arrow between the names of two peers.
/// @param fromLeft whether the left peer sends. @param arrives true: the arrow has a head; false: it ends in
/// an x.
std::string ladderLine(const CANTransportThread::TPCANMsg& frame, const std::string& left,
                       const std::string& right, bool fromLeft, bool arrives = true);
