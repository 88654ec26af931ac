// SPDX-License-Identifier: MIT
#include "dump/MessageTracker.h"

#include "velk/CANTransportFrame.h"

#include <algorithm>

using namespace CANTransportFrame;

namespace {

constexpr int attemptLimit = 1 + CANTransportThread::SEND_RETRY_LIMIT;

} // namespace

std::optional<TrackedMessage> MessageTracker::data(const SentFrame& sent)
{
    const auto& frame = sent.frame;
    const unsigned int low = lowNibbleOf(frame.data);
    const bool valid = startsMessage(frame.data) || kindOf(frame.data) == CTP_CONSECUTIVE_FRAME;
    lastRemark = valid ? "" : "invalid";
    switch (kindOf(frame.data)) {
    case CTP_SINGLE_FRAME:
        return start(sent, low, frame.data + 1, std::min(low, singleFrameBytes));
    case CTP_FIRST_FRAME:
        // A receiver takes all bytes of a first frame, even if the frame announces fewer.
        return start(sent, std::max(announcedLengthOf(frame.data), firstFrameBytes), frame.data + 2,
                     firstFrameBytes);
    case CTP_CONSECUTIVE_FRAME:
        append(frame);
        break;
    case CTP_FLOW_CONTROL:
        break;
    }
    return std::nullopt;
}

std::optional<TrackedMessage> MessageTracker::answer(const SentFrame& sent)
{
    lastRemark.clear();
    // Without an attempt in progress, an answer is late or a duplicate, and ends nothing.
    switch (codeOf(sent.frame.data)) {
    case CTP_FC_READY_TO_RECEIVE:
        attemptsInRow = 1;
        break;
    case CTP_FC_NOT_READY_TO_RECEIVE:
    case CTP_FC_NOT_ACKNOWLEDGE:
        lastRemark = "refused";
        return close(Outcome::refused, sent.time);
    case CTP_FC_ACKNOWLEDGE:
        acknowledged = acknowledged || underWay;
        return close(Outcome::acknowledged, sent.time);
    }
    return std::nullopt;
}

std::optional<TrackedMessage> MessageTracker::start(const SentFrame& sent, std::size_t length,
                                                    const std::uint8_t* bytes, std::size_t count)
{
    // No frame says which message it belongs to. The sender repeats a message until it is acknowledged or has
    // failed five times. Until then, the same first frame means the same message.
    const bool again = !acknowledged && attemptsInRow < attemptLimit &&
                       std::equal(head.data, head.data + sizeof head.data, sent.frame.data);
    auto ended = close(again ? Outcome::restarted : Outcome::incomplete, sent.time);
    if (!again) {
        head = sent.frame;
        started = sent.time;
        current.attempt = 0;
        attemptsInRow = 0;
    }
    ++current.attempt;
    ++attemptsInRow;
    if (again) {
        lastRemark = "attempt " + std::to_string(current.attempt);
    }
    current.length = length;
    current.bytes.assign(bytes, bytes + count);
    nextNumber = 0;
    acknowledged = false;
    gap = kindOf(sent.frame.data) == CTP_SINGLE_FRAME;
    underWay = true;
    return ended;
}

void MessageTracker::append(const CANTransportThread::TPCANMsg& frame)
{
    if (!underWay || (!gap && lowNibbleOf(frame.data) != nextNumber)) {
        lastRemark = underWay ? "expected CF " + std::to_string(nextNumber) : "no message";
        gap = true;
    }
    if (!gap && underWay) {
        const std::size_t missing = current.length - current.bytes.size();
        current.bytes.insert(current.bytes.end(), frame.data + 1,
                             frame.data + 1 +
                                 std::min<std::size_t>(missing, consecutiveFrameBytes));
        nextNumber = (nextNumber + 1) % sequenceNumbers;
    }
}

std::optional<TrackedMessage> MessageTracker::close(Outcome outcome, const LogTime& time)
{
    if (!underWay) {
        return std::nullopt;
    }
    underWay = false;
    TrackedMessage ended = current;
    current.bytes = {}; // gives back its memory: there may be many senders
    ended.outcome = outcome;
    if (outcome == Outcome::acknowledged && time && started && *time >= *started) {
        ended.duration = *time - *started;
    }
    return ended;
}
