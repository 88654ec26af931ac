// SPDX-License-Identifier: MIT
#pragma once

#include "dump/SentFrame.h"

#include <map>
#include <string>
#include <vector>

/// Names of the interfaces, and with them of the senders.
class SenderNames {
public:
    /// @return the number of the interface; none if too many others have one.
    std::optional<std::uint32_t> numberOf(const std::string& interface);
    /// @return the name of the interface.
    const std::string& interface(Sender sender) const { return names[interfaceOf(sender)]; }
    /// @return the id; after the name of the interface, unless that is the first.
    std::string text(Sender sender) const;

private:
    std::map<std::string, std::uint32_t> numbers;
    std::vector<std::string> names;
};
