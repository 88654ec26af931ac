// SPDX-License-Identifier: MIT
#pragma once

#include "dump/MessageTracker.h"

#include <string>

/// @return id, length, the frame's head in words, and the bytes after the head. @param ascii whether the
/// characters of the bytes follow.
std::string frameLine(const std::string& sender, const SentFrame& sent, bool ascii);

/// @return sender and receiver of the message, its outcome, and its bytes. @param ascii as above.
std::string messageLine(const std::string& from, const std::string& to,
                        const TrackedMessage& message, bool ascii);
