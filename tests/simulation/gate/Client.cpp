// SPDX-License-Identifier: MIT
#include "simulation/gate/Client.h"

#include <algorithm>
#include <chrono>
#include <utility>

using Access = CANTransportThreadAccess;
using TimePoint = CANTransportGate::Time;

namespace {

Time slept = 0;

TimePoint at(Time us) { return TimePoint(std::chrono::microseconds(us)); }

Time inUs(TimePoint time)
{
    const auto us = std::chrono::ceil<std::chrono::microseconds>(time.time_since_epoch()).count();
    return time == TimePoint::max() ? Client::never : us;
}

} // namespace

/// Takes the place of the real one: virtual time passes.
void millisleep(int milliseconds) { slept += milliseconds * ms; }

Client::Client(unsigned short canID, std::size_t reach, std::vector<Bytes> toSend,
               Cells& cellCounts)
    : id(canID),
      messages(std::move(toSend)),
      cells(cellCounts),
      outOfReach(reach)
{
    endpoint.setSendCANid(canID);
}

void Client::hear(const Frame& frame, Time now)
{
    retrial.peerHeard();
    if (outOfReach == 0 || gate.admit(frame, at(now))) {
        inbox.emplace_back(frame);
    }
}

void Client::pass(Time now)
{
    const bool requested = std::find(inbox.begin(), inbox.end(), std::nullopt) != inbox.end();
    if (!handedOver && !requested && !done() && now >= handOverAt) {
        inbox.emplace_back();
    }
    if (now >= awakeAt) {
        runEndpoint(now);
    }
    feedBus(now);
    if (const auto answer = gate.released(at(now))) {
        cells.hit("acknowledgement held until a reception has ended");
        inbox.emplace_back(answer);
    }
}

Time Client::next(Time now) const
{
    Time time = std::max(awakeAt, inbox.empty() && waiting ? deadline : now);
    if (!handedOver && !done()) {
        time = std::min(time, std::max(awakeAt, handOverAt));
    }
    return std::min(time, inUs(gate.wakeAt(at(now))));
}

/// One pass of its loop: input that waits comes before an expiry. The pass stops where the endpoint sleeps,
/// and continues from there.
void Client::runEndpoint(Time now)
{
    slept = 0;
    if (waiting && inbox.empty()) {
        if (now < deadline) {
            return;
        }
        endpoint.expire();
        takeOutcome(now);
    } else if (waiting && deadline != never) {
        Access::setTimeLeft(endpoint, std::max<Time>(0, deadline - now));
    }
    while (!inbox.empty() && slept == 0) {
        const std::optional<Frame> input = inbox.front();
        inbox.pop_front();
        handle(input);
        takeOutcome(now + slept);
    }
    awakeAt = now + slept;
    waiting = slept == 0;
    if (waiting) {
        const bool timed = !Access::restIfIdle(endpoint);
        deadline = timed ? now + Access::snapshot(endpoint).timerUs : never;
    }
}

void Client::handle(const std::optional<Frame>& input)
{
    if (input) {
        Access::handle(endpoint, *input);
        return;
    }
    handedOver = true;
    retrial.handedOver();
    endpoint.request(messages[outcomes.size()]);
}

/// A message that is no longer in the queue has been given up, reported or not.
void Client::takeOutcome(Time now)
{
    for (Bytes& message : endpoint.delivered()) {
        arrived.push_back(std::move(message));
    }
    bool acknowledged = false;
    for (const std::string& status : endpoint.statuses()) {
        acknowledged = acknowledged || status.rfind("CTT_ACKNOWLEDGED", 0) == 0;
    }
    if (!handedOver || Access::snapshot(endpoint).queued > 0) {
        return;
    }
    handedOver = false;
    handOverAt = 0;
    if (!acknowledged && outOfReach > 0) {
        const Retrial::Decision decision = retrial.givenUp(at(now));
        if (decision.verdict == Retrial::Verdict::again) {
            cells.hit("handed over again");
            handOverAt = inUs(decision.at);
            return;
        }
    }
    outcomes.push_back(acknowledged);
    retrial = Retrial(TimePoint::max());
}

void Client::feedBus(Time now)
{
    if (now >= awakeAt) {
        for (const Frame& frame : endpoint.sentFrames()) {
            if (outOfReach == 0) {
                toBus.push_back(frame);
            } else {
                gate.fromEndpoint(frame, at(now));
            }
        }
    }
    while (toBus.size() < outOfReach) {
        const Frame* const frame = gate.next(at(now));
        if (frame == nullptr) {
            return;
        }
        toBus.push_back(*frame);
        gate.left(at(now));
    }
}
