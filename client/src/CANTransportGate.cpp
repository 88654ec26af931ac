#include "velk/CANTransportGate.h"

#include "velk/CANTransportFrame.h"

#include <algorithm>
#include <array>
#include <utility>

using namespace CANTransportFrame;
using namespace std::chrono_literals;

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

/// Frames in the order of their arrival.
template <std::size_t room> class Line {
public:
    bool empty() const { return count == 0; }
    bool full() const { return count == room; }
    std::size_t size() const { return count; }
    const Frame& front() const { return frames[first]; }
    void push(const Frame& frame) { frames[(first + count++) % room] = frame; }
    void pop()
    {
        first = (first + 1) % room;
        --count;
    }
    void clear() { count = 0; }

private:
    std::array<Frame, room> frames{};
    std::size_t first = 0;
    std::size_t count = 0;
};

/// Which answers to the current attempt the gate lets in.
enum class Door {
    closed,  ///< None: there is no attempt, or it has its answer.
    started, ///< The first frame has left: a ready answer or a refusal.
    ready,   ///< The peer was ready, and consecutive frames still have to leave: a refusal.
    sent,    ///< All frames have left: an acknowledgement or a refusal.
};

} // namespace

struct CANTransportGate::State {
    // Own message.
    Line<frameCountOf(maxMessageLength)> burst; ///< Consecutive frames that have to leave.
    std::optional<Frame> start;                 ///< Single or first frame that has to leave.
    Door door = Door::closed;
    unsigned int toLeave = 0;        ///< Consecutive frames of the attempt that have to leave.
    Time writtenAt = Time::min();    ///< When the endpoint wrote its last message frame.
    Time leftAt = Time::min();       ///< When the last message frame left.
    Time quietFrom = Time::min();    ///< By then all refusals of the last attempt have arrived.
    Time expectedBy = Time::min();   ///< By then copies of the last acknowledgement have arrived.
    std::optional<Frame> heldAnswer; ///< An acknowledgement.
    Time heldSince = Time::min();
    std::uint32_t ownId = 0;

    // The peer's message.
    Line<64> answers;           ///< Answers to the peer that have to leave.
    bool receiving = false;     ///< The endpoint was ready, and has not answered the burst yet.
    bool refused = false;       ///< The endpoint has refused the current attempt of the peer.
    Time heardAt = Time::min(); ///< Of the last consecutive frame, or the ready answer before it.
    std::uint32_t peerId = 0;

    Counters counters;

    void takeAnswer(const Frame& frame, Time now);
    void takeStart(const Frame& frame);
    bool admitAnswer(const Frame& frame, Time now);
    bool admitRefusal(flowcontrol_t code, Time now);
    bool admitReady();
    bool admitAcknowledgement(const Frame& frame, Time now);
    void startLeft();
    Time burstAt() const;
    Time startAt() const;
    Time answerAt() const;
};

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
        if (state->door == Door::ready && --state->toLeave == 0) {
            state->door = Door::sent;
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
