#include "demo/Ladder.h"

#include "common/FrameWords.h"

namespace {

constexpr std::size_t lengthOfArrow = 36;

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

std::string ladderLine(const CANFrame& frame, VirtualBus::Fate fate, bool fromLeft,
                       std::size_t pair)
{
    const std::string words = ' ' + frameWords(frame) + ' ';
    const std::string shaft(lengthOfArrow - words.size(), '-');
    const bool arrives = fate != VirtualBus::Fate::dropped;
    const std::string number = pair == 0 ? "" : std::to_string(pair);
    const std::string arrow = fromLeft ? "--" + words + shaft + (arrives ? ">" : "x")
                                       : (arrives ? "<" : "x") + shaft + words + "--";
    return 'A' + number + " |" + arrow + "| B" + number + fateWords(fate);
}
