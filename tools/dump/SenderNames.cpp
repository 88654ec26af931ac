// SPDX-License-Identifier: MIT
#include "dump/SenderNames.h"

#include "common/CANId.h"

namespace {

constexpr std::size_t mostInterfaces = 256;

} // namespace

std::optional<std::uint32_t> SenderNames::numberOf(const std::string& interface)
{
    const auto known = numbers.find(interface);
    if (known != numbers.end()) {
        return known->second;
    }
    if (names.size() == mostInterfaces) {
        return std::nullopt;
    }
    const auto number = static_cast<std::uint32_t>(names.size());
    names.push_back(interface);
    numbers.emplace(interface, number);
    return number;
}

std::string SenderNames::text(Sender sender) const
{
    const std::string id = canIdText(static_cast<std::uint32_t>(sender));
    return interfaceOf(sender) == 0 ? id : interface(sender) + ':' + id;
}
