// SPDX-License-Identifier: MIT
#include "GateState.h"

#include <algorithm>
#include <utility>

using namespace CANTransportFrame;
using namespace std::chrono_literals;

// The rules of docs/gate.md.

namespace {

using Frame = CANTransportGate::Frame;
using Time = CANTransportGate::Time;

/// From the last refusal to the next attempt: by then the frames out of reach have been sent and refused.
constexpr auto quietTime = 3ms;
/// The longest gap in a burst of the peer.
constexpr auto longestGap = 10ms;
/// The longest wait of a frame for the other direction: the endpoint waits only 1 s for its answer.
constexpr auto longestWait = 500ms;
/// An answer has to reach the endpoint within 1 s after the frame that it answers.
constexpr auto answerLimit = 900ms;
/// The endpoint's own pause after an acknowledgement.
constexpr auto longestPause = 10ms;
/// At 125 kbit/s two shorter bursts at once take less than the second that a reception has.
constexpr std::size_t longBurst = 128;

} // namespace

/// The peer needs one refusal to stop. Each further one would count against its next attempts.
void CANTransportGate::State::takeAnswer(const Frame& frame, Time now)
{
    const flowcontrol_t code = codeOf(frame.data);
    if (code == CTP_FC_NOT_READY_TO_RECEIVE && refused) {
        ++counters.ownRefusals;
        return;
    }
    switch (code) {
    case CTP_FC_NOT_READY_TO_RECEIVE: // does not end a reception
        refused = true;
        break;
    case CTP_FC_READY_TO_RECEIVE:
        receiving = true;
        heardAt = now;
        break;
    case CTP_FC_NOT_ACKNOWLEDGE:
        refused = true;
        receiving = false;
        break;
    case CTP_FC_ACKNOWLEDGE:
        receiving = false;
        break;
    }
    answers.push(frame);
}

/// The previous attempt is over. Its consecutive frames still leave: the peer may be receiving them.
void CANTransportGate::State::takeStart(const Frame& frame)
{
    counters.ownFrames += start ? 1U : 0U;
    counters.acknowledgements += heldAnswer ? 1U : 0U;
    heldAnswer.reset();
    start = frame;
    door = Door::closed;
}

void CANTransportGate::State::startLeft()
{
    const bool single = kindOf(start->data) == CTP_SINGLE_FRAME;
    toLeave = single ? 0 : frameCountOf(announcedLengthOf(start->data)) - 1;
    door = single ? Door::sent : Door::started;
    start.reset();
}

/// Two long bursts at the same time can take longer than a reception may, in every attempt. The lower id
/// goes first, as on the bus.
Time CANTransportGate::State::burstAt() const
{
    const bool yields = receiving && ownId > peerId && burst.size() > longBurst;
    return yields ? std::min(heardAt + longestGap, writtenAt + longestWait) : Time::min();
}

Time CANTransportGate::State::startAt() const
{
    const bool single = kindOf(start->data) == CTP_SINGLE_FRAME;
    Time time = quietFrom;
    if (single) { // a copy of an old acknowledgement would fit it, but not a first frame
        time = std::max(time, expectedBy);
    } else if (receiving) {
        time = std::max(time, heardAt + longestGap);
    }
    return std::min(time, writtenAt + longestWait);
}

/// An acknowledgement would end the endpoint's current reception.
Time CANTransportGate::State::answerAt() const
{
    return receiving ? std::min(std::max(heardAt, heldSince) + longestGap, writtenAt + answerLimit)
                     : Time::min();
}

bool CANTransportGate::State::admitAnswer(const Frame& frame, Time now)
{
    const flowcontrol_t code = codeOf(frame.data);
    switch (code) {
    case CTP_FC_NOT_READY_TO_RECEIVE:
    case CTP_FC_NOT_ACKNOWLEDGE:
        return admitRefusal(code, now);
    case CTP_FC_READY_TO_RECEIVE:
        return admitReady();
    case CTP_FC_ACKNOWLEDGE:
        return admitAcknowledgement(frame, now);
    }
    ++counters.unknownAnswers; // not a code of the format
    return false;
}

/// A peer without a gate refuses each frame of a burst that it no longer receives. The first refusal ends
/// the attempt.
bool CANTransportGate::State::admitRefusal(flowcontrol_t code, Time now)
{
    quietFrom = now + quietTime;
    // After the other code the peer may still count the frames.
    if (code == CTP_FC_NOT_ACKNOWLEDGE) {
        counters.ownFrames += burst.size();
        burst.clear();
    }
    const bool admitted = std::exchange(door, Door::closed) != Door::closed;
    counters.refusals += admitted ? 0U : 1U;
    return admitted;
}

bool CANTransportGate::State::admitReady()
{
    if (door != Door::started) {
        ++counters.readies;
        return false;
    }
    door = toLeave > 0 ? Door::ready : Door::sent;
    return true;
}

/// A peer cannot acknowledge what it has not received.
bool CANTransportGate::State::admitAcknowledgement(const Frame& frame, Time now)
{
    if (door != Door::sent) {
        ++counters.acknowledgements;
        return false;
    }
    door = Door::closed;
    // A copy made by the bus arrives soon after: allow twice the time that the answer took.
    expectedBy = now + std::min<Time::duration>(2 * (now - leftAt), longestPause);
    heldSince = now;
    if (answerAt() > now) {
        heldAnswer = frame;
    }
    return !heldAnswer;
}
