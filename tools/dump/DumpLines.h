#pragma once

#include "dump/MessageTracker.h"

#include <string>

/// Id, length, words for the head, and the bytes behind it.
std::string frameLine(const LoggedFrame& logged);

/// Who sent the message to whom, its outcome, and its bytes.
std::string messageLine(const std::string& from, const std::string& to,
                        const TrackedMessage& message);
