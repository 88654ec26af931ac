#pragma once

#include "velk/CANTransportClient.h"

#include <cstdint>
#include <istream>
#include <string>

/// Where the message of velkcan-send comes from; all throw Tool::Failure.
namespace MessageSource {

using Bytes = CANTransportClient::Bytes;

/// Bytes as pairs of hexadecimal digits; white space may stand between pairs.
Bytes fromHex(std::istream& stream);
/// All bytes as they are. @param name for the user.
Bytes asTheyAre(std::istream& stream, const std::string& name);
Bytes fromFile(const std::string& name);
/// 01 02 03 and so on.
Bytes generated(std::size_t length);

} // namespace MessageSource
