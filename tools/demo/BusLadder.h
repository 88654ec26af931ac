// SPDX-License-Identifier: MIT
#pragma once

#include "bus/VirtualBus.h"

#include <string>

/// @return one line of a ladder diagram, as from ladderLine(), with what happened to the frame on the bus.
/// @param fromLeft whether the left endpoint sends. @param pair number of the pair, from 1; 0 if there is
/// only one.
std::string busLadderLine(const CANFrame& frame, VirtualBus::Fate fate, bool fromLeft,
                          std::size_t pair);
