// SPDX-License-Identifier: MIT
#include "demo/BusLadder.h"

#include "common/Ladder.h"

namespace {

const char* fateWords(VirtualBus::Fate fate)
{
    switch (fate) {
    case VirtualBus::Fate::carried:
        return "";
    case VirtualBus::Fate::dropped:
        return "  dropped";
    case VirtualBus::Fate::duplicate:
        return "  duplicate";
    case VirtualBus::Fate::stray:
        return "  stray";
    }
    return "";
}

} // namespace

std::string busLadderLine(const CANFrame& frame, VirtualBus::Fate fate, bool fromLeft,
                          std::size_t pair)
{
    const std::string number = pair == 0 ? "" : std::to_string(pair);
    const bool arrives = fate != VirtualBus::Fate::dropped;
    return ladderLine(frame, 'A' + number, 'B' + number, fromLeft, arrives) + fateWords(fate);
}
