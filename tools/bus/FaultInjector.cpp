// SPDX-License-Identifier: MIT
#include "bus/FaultInjector.h"

#include "velk/CANTransportFrame.h"

#include <algorithm>

using namespace CANTransportFrame;

namespace {

constexpr unsigned int highestNibble = 0x0F;
constexpr unsigned int firstUnknownKind = CTP_FLOW_CONTROL + 1;

} // namespace

FaultInjector::FaultInjector(const FaultRates& faults) : rates(faults), random(faults.seed) {}

FaultInjector::Verdict FaultInjector::judge(const CANFrame& frame)
{
    Verdict verdict;
    verdict.dropped = happens(rates.drop);
    verdict.duplicated = happens(rates.duplicate) && !verdict.dropped;
    follow(frame, verdict.dropped);
    if (happens(rates.stray)) {
        verdict.stray = makeStray(frame.canID);
    }
    return verdict;
}

FaultInjector::Progress& FaultInjector::progressOf(std::uint32_t canID)
{
    return progressOfIds[std::min<std::size_t>(canID, standardIds)];
}

bool FaultInjector::happens(double probability)
{
    return std::uniform_real_distribution<double>(0, 1)(random) < probability;
}

unsigned int FaultInjector::pick(unsigned int lowest, unsigned int highest)
{
    return std::uniform_int_distribution<unsigned int>(lowest, highest)(random);
}

/// Tracks the sequence numbers. Dropped frames count as sent, but not as received: a receiver still waits for
/// the first number that it has missed.
void FaultInjector::follow(const CANFrame& frame, bool dropped)
{
    Progress& progress = progressOf(frame.canID);
    switch (kindOf(frame.data)) {
    case CTP_FIRST_FRAME:
        progress.sent = sequenceNumbers - 1;
        progress.due = dropped ? progress.due : 0;
        break;
    case CTP_CONSECUTIVE_FRAME:
        progress.sent = lowNibbleOf(frame.data);
        if (!dropped && progress.sent == progress.due) {
            progress.due = (progress.due + 1) % sequenceNumbers;
        }
        break;
    case CTP_SINGLE_FRAME:
    case CTP_FLOW_CONTROL:
        break;
    }
}

CANFrame FaultInjector::makeStray(std::uint32_t canID)
{
    CANFrame stray{canID, dataBytes, {}};
    for (std::uint8_t& byte : stray.data) {
        byte = static_cast<std::uint8_t>(pick(0, 255));
    }
    stray.data[0] = strayFirstByte(progressOf(canID));
    return stray;
}

std::uint8_t FaultInjector::strayFirstByte(const Progress& progress)
{
    switch (pick(0, 4)) {
    case 0:
        return 0;
    case 1:
        return firstByte(CTP_SINGLE_FRAME, pick(singleFrameBytes + 1, highestNibble));
    case 2:
        return firstByte(CTP_FLOW_CONTROL, strayFlowControl());
    case 3:
        return firstByte(CTP_CONSECUTIVE_FRAME, straySequenceNumber(progress));
    default:
        const unsigned int low = pick(0, highestNibble);
        return firstByte(static_cast<framekind_t>(pick(firstUnknownKind, highestNibble)), low);
    }
}

/// @return any code except an acknowledgement.
unsigned int FaultInjector::strayFlowControl()
{
    const unsigned int code = pick(0, highestNibble - 1);
    return code < CTP_FC_ACKNOWLEDGE ? code : code + 1;
}

/// The number is neither close to the last one sent nor the one that is due. The injector does not see frames
/// that the full queue of a node has dropped: a receiver that has missed up to four frames waits for a number
/// close to the last one.
unsigned int FaultInjector::straySequenceNumber(const Progress& progress)
{
    const unsigned int number = (progress.sent + pick(5, 10)) % sequenceNumbers;
    return number == progress.due ? (progress.sent + 11) % sequenceNumbers : number;
}
