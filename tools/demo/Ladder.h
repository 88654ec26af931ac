#pragma once

#include "bus/VirtualBus.h"

#include <string>

/// One line of a ladder: the frame's words on an arrow towards the receiver, and what became of the
/// frame. @param fromLeft the left of the two sends. @param pair number of the pair, from 1; 0 if
/// there is only one.
std::string ladderLine(const CANFrame& frame, VirtualBus::Fate fate, bool fromLeft,
                       std::size_t pair);
