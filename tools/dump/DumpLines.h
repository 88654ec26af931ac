#pragma once

#include "dump/MessageTracker.h"

#include <string>

/// @return id, length, the frame's head in words, and the bytes after the head.
std::string frameLine(const std::string& sender, const SentFrame& sent);

/// @return sender and receiver of the message, its outcome, and its bytes.
std::string messageLine(const std::string& from, const std::string& to,
                        const TrackedMessage& message);
