// SPDX-License-Identifier: MIT
#pragma once

#include "velk/TraceMessage.h"
#include "velk/TraceRecord.h"

#include <memory>

/// @return the message in a complete record.
std::unique_ptr<MessageBase> parseRecord(const TraceRecord::View& record);
