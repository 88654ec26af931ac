#include "dump/MessageTracker.h"

#include "dump/FrameFields.h"

#include <algorithm>

namespace {

using Transport = CANTransportThread;

constexpr int attemptLimit = 1 + Transport::SEND_RETRY_LIMIT;
constexpr unsigned int numberMask = 0x0F;

} // namespace

std::optional<TrackedMessage> MessageTracker::data(const LoggedFrame& logged)
{
    const auto& frame = logged.frame;
    const std::size_t low = lowNibble(frame);
    switch (kindOf(frame)) {
    case Transport::CTP_SINGLE_FRAME:
        return begin(logged, low, frame.data + 1, std::min(low, bytesInFrame));
    case Transport::CTP_FIRST_FRAME:
        // A receiver takes all the bytes of a first frame, however few it announces.
        return begin(logged, std::max(lengthInFirstFrame(frame), bytesInFirstFrame), frame.data + 2,
                     bytesInFirstFrame);
    case Transport::CTP_CONSECUTIVE_FRAME:
        append(frame);
        return std::nullopt;
    default:
        return std::nullopt;
    }
}

std::optional<TrackedMessage> MessageTracker::answer(const LoggedFrame& logged)
{
    // What comes while no attempt is under way is late or doubled, and ends nothing.
    switch (lowNibble(logged.frame)) {
    case Transport::CTP_FC_READY_TO_RECEIVE:
        attemptsInRow = 1;
        return std::nullopt;
    case Transport::CTP_FC_NOT_READY_TO_RECEIVE:
    case Transport::CTP_FC_NOT_ACKNOWLEDGE:
        return close(Outcome::refused, logged.time);
    case Transport::CTP_FC_ACKNOWLEDGE:
        acknowledged = acknowledged || underWay;
        return close(Outcome::acknowledged, logged.time);
    default:
        return std::nullopt;
    }
}

std::optional<TrackedMessage> MessageTracker::begin(const LoggedFrame& logged, std::size_t length,
                                                    const std::uint8_t* bytes, std::size_t count)
{
    // No frame says which message it belongs to. The sender tries one until it is acknowledged or
    // has failed five times, so the same first frame until then is the same message.
    const bool again = !acknowledged && attemptsInRow < attemptLimit &&
                       std::equal(head.data, head.data + sizeof head.data, logged.frame.data);
    auto ended = close(again ? Outcome::restarted : Outcome::incomplete, logged.time);
    if (!again) {
        head = logged.frame;
        begun = logged.time;
        current.attempt = 0;
        attemptsInRow = 0;
    }
    ++current.attempt;
    ++attemptsInRow;
    current.length = length;
    current.bytes.assign(bytes, bytes + count);
    nextNumber = 0;
    acknowledged = false;
    gap = kindOf(logged.frame) == Transport::CTP_SINGLE_FRAME;
    underWay = true;
    return ended;
}

void MessageTracker::append(const Transport::TPCANMsg& frame)
{
    gap = gap || lowNibble(frame) != nextNumber;
    if (!gap && underWay) {
        const std::size_t missing = current.length - current.bytes.size();
        current.bytes.insert(current.bytes.end(), frame.data + 1,
                             frame.data + 1 + std::min(missing, bytesInFrame));
        nextNumber = (nextNumber + 1) & numberMask;
    }
}

std::optional<TrackedMessage> MessageTracker::close(Outcome outcome, const LogTime& time)
{
    if (!underWay) {
        return std::nullopt;
    }
    underWay = false;
    TrackedMessage ended = current;
    ended.outcome = outcome;
    if (outcome == Outcome::acknowledged && time && begun && *time >= *begun) {
        ended.duration = *time - *begun;
    }
    return ended;
}
