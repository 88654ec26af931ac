// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportClient.h"

#include <string>

namespace CLI {
class App;
} // namespace CLI

/// How messages are printed, and status changes with them.
struct MessageFormat {
    bool raw = false;
    bool json = false;
};

/// Adds the options `--raw` and `--json`.
void addFormat(CLI::App& app, MessageFormat& format, const std::string& rawHelp,
               const std::string& jsonHelp);

/// Prints a message on stdout: as a line of hexadecimal bytes, as a JSON object or as it is.
/// @throws Tool::Failure, Tool::OutputClosed
void print(const CANTransportClient::Message& message, const MessageFormat& format);

/// Prints a status change on stderr: the time of day and words, or a JSON object.
void printStatus(const CANTransportClient::StatusChange& change, const MessageFormat& format);
