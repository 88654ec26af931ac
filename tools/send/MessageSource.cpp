#include "send/MessageSource.h"

#include "common/Tool.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace {

constexpr std::size_t longest = CANTransportThread::MAX_MESSAGE_LENGTH;

MessageSource::Bytes checked(MessageSource::Bytes bytes, const std::string& name)
{
    if (bytes.empty() || bytes.size() > longest) {
        throw Tool::UsageError(
            name +
            (bytes.empty() ? " is empty" : " has more than " + std::to_string(longest) + " bytes") +
            ", expected 1 to " + std::to_string(longest) + " bytes");
    }
    return bytes;
}

int digitValue(char digit)
{
    return std::isdigit(static_cast<unsigned char>(digit)) != 0
               ? digit - '0'
               : std::tolower(static_cast<unsigned char>(digit)) - 'a' + 10;
}

[[noreturn]] void failAt(std::size_t position, const std::string& token)
{
    throw Tool::UsageError(
        "position " + std::to_string(position) + ": " +
        Tool::complaint(token, "bytes of two hexadecimal digits each, as in 'DE AD BEEF'"));
}

} // namespace

MessageSource::Bytes MessageSource::fromHex(std::istream& stream)
{
    Bytes bytes;
    std::size_t position = 1;
    std::string token;
    const auto take = [&] {
        if (token.size() % 2 != 0 ||
            token.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
            failAt(position - token.size(), token);
        }
        for (std::size_t i = 0; i < token.size() && bytes.size() <= longest; i += 2) {
            bytes.push_back(
                static_cast<unsigned char>(digitValue(token[i]) << 4 | digitValue(token[i + 1])));
        }
        token.clear();
    };
    for (char next = 0; stream.get(next); ++position) {
        if (std::isspace(static_cast<unsigned char>(next)) != 0) {
            take();
        } else if (token.push_back(next); token.size() > 2 * longest + 2) {
            break;
        }
    }
    take();
    return checked(std::move(bytes), "standard input");
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
            throw Tool::UsageError("cannot read '" + name + "': " + std::strerror(errno));
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
