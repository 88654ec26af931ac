// SPDX-License-Identifier: MIT
#include "common/Ladder.h"

#include "common/FrameWords.h"

namespace {

constexpr std::size_t lengthOfArrow = 36;

} // namespace

std::string ladderLine(const CANTransportThread::TPCANMsg& frame, const std::string& left,
                       const std::string& right, bool fromLeft, bool arrives)
{
    const std::string words = ' ' + frameWords(frame) + ' ';
    const std::string shaft(lengthOfArrow - words.size(), '-');
    const std::string arrow = fromLeft ? "--" + words + shaft + (arrives ? ">" : "x")
                                       : (arrives ? "<" : "x") + shaft + words + "--";
    return left + " |" + arrow + "| " + right;
}
