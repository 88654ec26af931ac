// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportClient.h"

#include <cstdint>
#include <istream>
#include <string>

/// The sources of a message for velkcan-send. All return a message of 1 to 4095 bytes.
/// @throws Tool::Failure
namespace MessageSource {

using Bytes = CANTransportClient::Bytes;

// `name`: of the source, for error messages.

/// @return bytes given as pairs of hexadecimal digits; white space may separate the pairs.
Bytes fromHex(std::istream& stream, const std::string& name);
/// @return bytes given in the same way, or as a JSON object with the member `data`.
Bytes fromLine(const std::string& line);
/// @return all bytes as they are.
Bytes asTheyAre(std::istream& stream, const std::string& name);
/// @return all bytes of the file.
Bytes fromFile(const std::string& name);
/// @return 01 02 03 and so on.
Bytes generated(std::size_t length);

} // namespace MessageSource
