// SPDX-License-Identifier: MIT
#pragma once

#include "dump/MessageTracker.h"

#include <string>

/// Control sequences that begin a colour on a terminal.
const char* colourOf(const CANTransportThread::TPCANMsg& frame);
const char* colourOf(Outcome outcome);
/// Ends it.
constexpr const char* noColour = "\033[0m";
