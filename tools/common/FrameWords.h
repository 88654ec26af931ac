// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportThread.h"

#include <string>

/// @return the frame in words: `SF len 7`, `FF len 20`, `CF 3`, `FC acknowledge`; `unknown 0x7a` for a
/// first byte that has no meaning.
std::string frameWords(const CANTransportThread::TPCANMsg& frame);
