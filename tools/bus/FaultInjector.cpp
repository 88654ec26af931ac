#include "bus/FaultInjector.h"

namespace {

constexpr unsigned int sequenceNumbers = 16;

unsigned int highNibble(const CANFrame& frame) { return frame.data[0] >> 4U; }
unsigned int lowNibble(const CANFrame& frame) { return frame.data[0] & 0x0FU; }

unsigned int headOf(unsigned int kind, unsigned int low) { return kind << 4U | low; }

} // namespace

FaultInjector::FaultInjector(const Faults& faults) : rates(faults), random(faults.seed) {}

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

bool FaultInjector::happens(double probability)
{
    return std::uniform_real_distribution<double>(0, 1)(random) < probability;
}

unsigned int FaultInjector::pick(unsigned int lowest, unsigned int highest)
{
    return std::uniform_int_distribution<unsigned int>(lowest, highest)(random);
}

/// Keeps up with the sequence numbers, of frames that were dropped too: a receiver still waits for
/// the first one that it has missed.
void FaultInjector::follow(const CANFrame& frame, bool dropped)
{
    Progress& progress = progressOfId[frame.canID];
    if (highNibble(frame) == CANTransportThread::CTP_FIRST_FRAME) {
        progress.sent = sequenceNumbers - 1;
        progress.due = dropped ? progress.due : 0;
    } else if (highNibble(frame) == CANTransportThread::CTP_CONSECUTIVE_FRAME) {
        progress.sent = lowNibble(frame);
        if (!dropped && progress.sent == progress.due) {
            progress.due = (progress.due + 1) % sequenceNumbers;
        }
    }
}

CANFrame FaultInjector::makeStray(std::uint32_t canID)
{
    CANFrame stray{canID, 8, {}};
    for (std::uint8_t& byte : stray.data) {
        byte = static_cast<std::uint8_t>(pick(0, 255));
    }
    unsigned int head = 0;
    switch (pick(0, 4)) {
    case 0:
        break;
    case 1:
        head = headOf(CANTransportThread::CTP_SINGLE_FRAME, pick(8, 15));
        break;
    case 2:
        head = headOf(CANTransportThread::CTP_FLOW_CONTROL, strayFlowControl());
        break;
    case 3:
        head = headOf(CANTransportThread::CTP_CONSECUTIVE_FRAME,
                      straySequenceNumber(progressOfId[canID]));
        break;
    default:
        head = headOf(pick(4, 15), pick(0, 15));
    }
    stray.data[0] = static_cast<std::uint8_t>(head);
    return stray;
}

unsigned int FaultInjector::strayFlowControl()
{
    const unsigned int code = pick(0, 14);
    return code < CANTransportThread::CTP_FC_ACKNOWLEDGE ? code : code + 1;
}

/// Far from the number sent last, and not the one that is due: frames that a node's full queue
/// dropped are not known here, and a receiver that missed up to four of them waits for one shortly
/// behind the last.
unsigned int FaultInjector::straySequenceNumber(const Progress& progress)
{
    const unsigned int number = (progress.sent + pick(5, 10)) % sequenceNumbers;
    return number == progress.due ? (progress.sent + 11) % sequenceNumbers : number;
}
