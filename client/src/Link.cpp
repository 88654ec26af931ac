// SPDX-License-Identifier: MIT
#include "Link.h"

#include "velk/VelkException.h"

#include "CANLink.h"
#include "CommandLink.h"
#include "SocketLink.h"

#include <string_view>

namespace {

/// @return the text after the prefix, or null.
const char* after(std::string_view prefix, const std::string& text)
{
    return text.compare(0, prefix.size(), prefix) == 0 ? text.c_str() + prefix.size() : nullptr;
}

} // namespace

std::unique_ptr<Link> openLink(const std::string& bus, std::uint32_t acceptedId, Tally& tally)
{
    if (const char* const path = after("unix:", bus)) {
        return connectTo(path, tally);
    }
    if (const char* const command = after("exec:", bus)) {
        return std::make_unique<CommandLink>(command, tally);
    }
    if (bus.empty() || bus.find('/') != std::string::npos) {
        throwVelkException("got the bus '", bus, "', expected can0, unix:PATH or exec:COMMAND");
    }
    return std::make_unique<CANLink>(bus, acceptedId, tally);
}
