// SPDX-License-Identifier: MIT
#include "send/MessageSource.h"

#include "common/CANId.h"
#include "common/Tool.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

namespace {

constexpr std::size_t longest = CANTransportThread::MAX_MESSAGE_LENGTH;

MessageSource::Bytes checked(MessageSource::Bytes bytes, const std::string& name)
{
    if (bytes.empty() || bytes.size() > longest) {
        throw Tool::Failure(Tool::exitUsage,
                            name +
                                (bytes.empty()
                                     ? " is empty"
                                     : " has more than " + std::to_string(longest) + " bytes") +
                                ", expected 1 to " + std::to_string(longest) + " bytes");
    }
    return bytes;
}

[[noreturn]] void failAt(std::size_t position, const std::string& given)
{
    throw Tool::Failure(Tool::exitUsage,
                        "position " + std::to_string(position) + ": got " + given +
                            ", expected two hexadecimal digits for each byte, as in 'DE AD BEEF'");
}

std::string nameOf(char given)
{
    const auto byte = static_cast<unsigned char>(given);
    if (std::isgraph(byte) != 0) {
        return {'\'', given, '\''};
    }
    return std::isspace(byte) != 0 ? "a blank" : "the byte " + std::to_string(byte);
}

} // namespace

MessageSource::Bytes MessageSource::fromHex(std::istream& stream, const std::string& name)
{
    Bytes bytes;
    std::string digits; ///< Digits of the current byte.
    std::size_t position = 1;
    for (char next = 0; bytes.size() <= longest && stream.get(next); ++position) {
        if (std::isxdigit(static_cast<unsigned char>(next)) != 0) {
            digits += next;
        } else if (!digits.empty() || std::isspace(static_cast<unsigned char>(next)) == 0) {
            failAt(position, nameOf(next));
        }
        if (digits.size() == 2) {
            bytes.push_back(static_cast<unsigned char>(parseHex(digits).value_or(0)));
            digits.clear();
        }
    }
    if (!digits.empty()) {
        failAt(position, "the end");
    }
    return checked(std::move(bytes), name);
}

MessageSource::Bytes MessageSource::fromLine(const std::string& line)
{
    std::istringstream hex(line);
    if ((hex >> std::ws).peek() != '{') {
        return fromHex(hex, "the message");
    }
    const auto object = nlohmann::json::parse(line, nullptr, false);
    if (object.is_discarded()) {
        throw Tool::Failure(Tool::exitUsage, "got a line that starts like JSON and is not");
    }
    const auto data = object.is_object() ? object.find("data") : object.end();
    if (data == object.end() || !data->is_string()) {
        throw Tool::Failure(
            Tool::exitUsage,
            "got an object without a text as data, expected {\"data\":\"DEADBEEF\"}");
    }
    std::istringstream digits(data->get<std::string>());
    return fromHex(digits, "data");
}

MessageSource::Bytes MessageSource::asTheyAre(std::istream& stream, const std::string& name)
{
    Bytes bytes(longest + 1);
    stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(stream.gcount()));
    return checked(std::move(bytes), name);
}

MessageSource::Bytes MessageSource::fromFile(const std::string& name)
{
    errno = 0;
    std::ifstream file(name, std::ios::binary);
    if (!file || file.peek() == std::ifstream::traits_type::eof()) {
        if (errno != 0) {
            throw Tool::Failure(Tool::exitUsage,
                                "cannot read '" + name + "': " + std::strerror(errno));
        }
    }
    return asTheyAre(file, "'" + name + "'");
}

MessageSource::Bytes MessageSource::generated(std::size_t length)
{
    Bytes bytes(length);
    for (std::size_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<unsigned char>(i + 1);
    }
    return bytes;
}
