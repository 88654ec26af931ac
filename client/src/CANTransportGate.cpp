// SPDX-License-Identifier: MIT
#include "velk/CANTransportGate.h"

#include "GateState.h"

#include <algorithm>
#include <utility>

using namespace CANTransportFrame;

namespace {

using Frame = CANTransportGate::Frame;
using Time = CANTransportGate::Time;

} // namespace

CANTransportGate::CANTransportGate() : state(std::make_unique<State>()) {}

CANTransportGate::~CANTransportGate() = default;

void CANTransportGate::fromEndpoint(const Frame& frame, Time now)
{
    if (full()) {
        ++state->counters.ownFrames;
        return;
    }
    if (kindOf(frame.data) == CTP_FLOW_CONTROL) {
        state->takeAnswer(frame, now);
        return;
    }
    state->ownId = frame.canID;
    state->writtenAt = now;
    if (kindOf(frame.data) == CTP_CONSECUTIVE_FRAME) {
        state->burst.push(frame);
    } else {
        state->takeStart(frame);
    }
}

bool CANTransportGate::full() const { return state->answers.full() || state->burst.full(); }

/// Answers first: the peer waits for them, and they are not part of the own message.
const Frame* CANTransportGate::next(Time now) const
{
    if (!state->answers.empty()) {
        return &state->answers.front();
    }
    if (!state->burst.empty()) {
        return state->burstAt() <= now ? &state->burst.front() : nullptr;
    }
    return state->start && state->startAt() <= now ? &*state->start : nullptr;
}

void CANTransportGate::left(Time now)
{
    if (!state->answers.empty()) {
        state->answers.pop();
        return;
    }
    state->leftAt = now;
    if (!state->burst.empty()) {
        state->burst.pop();
        if (state->door == State::Door::ready && --state->toLeave == 0) {
            state->door = State::Door::sent;
        }
    } else if (state->start) {
        state->startLeft();
    }
}

bool CANTransportGate::admit(const Frame& fromBus, Time now)
{
    state->peerId = fromBus.canID;
    if (kindOf(fromBus.data) == CTP_FLOW_CONTROL) {
        return state->admitAnswer(fromBus, now);
    }
    if (kindOf(fromBus.data) == CTP_CONSECUTIVE_FRAME) {
        state->heardAt = now;
    } else {
        state->refused = false;
    }
    return true;
}

std::optional<Frame> CANTransportGate::released(Time now)
{
    if (!state->heldAnswer || state->answerAt() > now) {
        return std::nullopt;
    }
    return std::exchange(state->heldAnswer, std::nullopt);
}

Time CANTransportGate::wakeAt(Time now) const
{
    Time time = Time::max();
    const auto consider = [&](Time other) { time = other > now ? std::min(time, other) : time; };
    if (state->heldAnswer) {
        consider(state->answerAt());
    }
    if (!state->burst.empty()) {
        consider(state->burstAt());
    } else if (state->start) {
        consider(state->startAt());
    }
    return time;
}

void CANTransportGate::reset()
{
    const Counters counters = state->counters;
    *state = State();
    state->counters = counters;
}

CANTransportGate::Counters CANTransportGate::counters() const { return state->counters; }
