// SPDX-License-Identifier: MIT
#include "Mover.h"

#include <utility>

// Frames between the endpoint and the bus, through the gate.

namespace {

using namespace std::chrono_literals;

constexpr auto queuePause = 500us; ///< About four frames at 1 Mbit/s.
constexpr std::size_t framesAtOnce = 64;

} // namespace

/// Moves what the endpoint has written to the bus. @return false if the bus is lost.
bool Mover::moveOut()
{
    bool more = true;
    while (more) { // the gate may have room again when frames have left
        const bool full = !takeFromEndpoint();
        if (!sendToBus()) {
            return false;
        }
        more = full && !gate.full();
    }
    return true;
}

/// @return false if the gate had no room for all frames.
bool Mover::takeFromEndpoint()
{
    while (const auto change = port->takeStatus()) {
        onStatus(*change);
    }
    while (!gate.full()) {
        const auto frame = port->takeFrame();
        if (!frame) {
            return true;
        }
        gate.fromEndpoint(*frame, now);
    }
    return false;
}

/// @return false if the bus is lost.
bool Mover::sendToBus()
{
    if (now < linkPause) {
        return true;
    }
    while (const Frame* const frame = gate.next(now)) {
        switch (link->send(*frame)) {
        case Link::Sent::done:
            around.tally.attempts += CANTransportFrame::startsMessage(frame->data) ? 1 : 0;
            ++around.tally.framesSent;
            gate.left(now);
            pace.onSent();
            break;
        case Link::Sent::wouldBlock: {
            now = Clock::now(); // a burst takes time
            const auto pause = pace.onBlocked(now);
            linkBlocked = pause == Clock::duration::zero();
            linkPause = now + pause;
            return true;
        }
        case Link::Sent::queueFull:
            linkBlocked = false; // a writable link would end each wait
            linkPause = now + queuePause;
            return true;
        case Link::Sent::lost:
            return false;
        }
    }
    linkBlocked = false;
    pace.onIdle();
    return true;
}

/// @return false if the bus is lost.
bool Mover::takeFromBus()
{
    fromBus.clear();
    const bool good = link->receive(fromBus, framesAtOnce);
    now = Clock::now();
    for (const Frame& frame : fromBus) {
        if (frame.canID != around.options.receiveId) {
            ++around.tally.framesIgnored;
            continue;
        }
        ++around.tally.framesReceived;
        gathering.onFrame(frame);
        if (retrial) {
            retrial->peerHeard();
        }
        if (gate.admit(frame, now) && isForEndpoint(frame)) {
            port->addFrame(frame);
        }
    }
    gathering.onTaken(now);
    gatherEnd = now + gathering.pause();
    return good;
}

/// Drops the rest of a burst that an earlier endpoint had started to receive: refusing each frame would use
/// up all attempts of the peer at once.
bool Mover::isForEndpoint(const Frame& frame)
{
    startHeard = startHeard || CANTransportFrame::startsMessage(frame.data);
    return startHeard ||
           CANTransportFrame::kindOf(frame.data) != CANTransportFrame::CTP_CONSECUTIVE_FRAME;
}

void Mover::countGate()
{
    const CANTransportGate::Counters counters = gate.counters();
    around.tally.answersDropped = answersDroppedBefore + counters.refusals + counters.readies +
                                  counters.acknowledgements + counters.unknownAnswers;
    around.tally.framesDropped = framesDroppedBefore + counters.ownRefusals + counters.ownFrames;
}

/// Sends the last acknowledgements, as far as the bus takes them at once, and handles the last reports of
/// the endpoint.
void Mover::sendLastAnswers()
{
    const auto isAnswer = [](const Frame& frame) {
        return CANTransportFrame::kindOf(frame.data) == CANTransportFrame::CTP_FLOW_CONTROL;
    };
    for (bool more = true; more;) {
        const bool full = !takeFromEndpoint();
        const Frame* frame = gate.next(now);
        while (frame != nullptr && isAnswer(*frame) && link->send(*frame) == Link::Sent::done) {
            ++around.tally.framesSent;
            gate.left(now);
            frame = gate.next(now);
        }
        more = full && !gate.full(); // full: the bus takes no frames
    }
}
