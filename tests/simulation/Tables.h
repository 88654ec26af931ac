// SPDX-License-Identifier: MIT
#pragma once

#include "simulation/Cells.h"
#include "simulation/Effect.h"

/// The tables of the protocol: each row that an event falls into is counted, and its effect compared.
namespace Tables {

void checkFrame(const Frame& frame, const Effect& effect, Cells& cells);
void checkRequest(const Bytes& message, const Effect& effect, Cells& cells);
void checkExpiry(const Effect& effect, Cells& cells);
void checkClear(bool includeCurrent, const Effect& effect, Cells& cells);

} // namespace Tables
