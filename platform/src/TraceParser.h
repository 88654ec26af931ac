#pragma once

#include "velk/TraceMessage.h"
#include "velk/TraceRecord.h"

#include <memory>

/// @return the message that a complete record holds.
std::unique_ptr<MessageBase> parseRecord(const TraceRecord::View& record);
