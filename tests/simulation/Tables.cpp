#include "simulation/Tables.h"

#include <algorithm>

namespace {

constexpr int sending = CANTransportThread::RCTS_SENDING;
constexpr int receiving = CANTransportThread::RCTS_RECEIVING;
constexpr int waiting = CANTransportThread::RCTS_WAIT_FOR_FC;

int kindOf(const Frame& frame) { return frame.data[0] >> 4; }
int lowOf(const Frame& frame) { return frame.data[0] & 0x0F; }

/// The codes of the flow-control frames that were sent: "31".
std::string answersOf(const Effect& effect)
{
    std::string codes;
    for (const Frame& frame : effect.sent) {
        if (kindOf(frame) == 3) {
            codes += std::to_string(lowOf(frame));
        }
    }
    return codes;
}

void requireAnswers(const std::string& row, const Effect& effect, const std::string& codes)
{
    require(answersOf(effect) == (effect.proxyGone ? "" : codes), row, ": answers");
}

void requireDataFrames(const std::string& row, const Effect& effect, std::size_t count)
{
    const std::size_t sent = effect.sent.size() - answersOf(effect).size();
    require(sent == (effect.proxyGone ? 0 : count), row, ": data frames");
}

/// Where a reception has to stand behind an event.
struct Reception {
    bool consecutive;
    int flag;
    std::size_t bytes;
    std::string answers;
    std::size_t delivered;
};

void compareReception(const std::string& row, const Effect& effect, const Reception& expected,
                      Cells& cells)
{
    cells.hit(row);
    require(effect.after.consecutive == expected.consecutive, row, ": phase");
    require((effect.after.state & receiving) == expected.flag, row, ": RCTS_RECEIVING");
    require(effect.after.received == expected.bytes, row, ": receiveBuffer");
    requireAnswers(row, effect, expected.answers);
    require(effect.delivered == expected.delivered, row, ": delivery");
    require((effect.after.state & ~receiving) == (effect.before.state & ~receiving), row,
            ": sending flags");
    requireDataFrames(row, effect, 0);
}

std::string wordOf(const Frame& frame)
{
    static const char* const words[] = {"single frame", "first frame", "consecutive frame"};
    return kindOf(frame) > 3 ? "unknown frame" : frame.data[0] == 0 ? "0x00" : words[kindOf(frame)];
}

void checkDataFrame(const Frame& frame, const Effect& effect, Cells& cells)
{
    const Snapshot& before = effect.before;
    const int kind = kindOf(frame);
    const int flag = before.state & receiving;
    const bool delivers = !effect.clientGone;
    const std::string outcome = delivers ? "3" : "2";
    const bool fits =
        kind == 2 ? before.consecutive : kind < 2 && !before.consecutive && frame.data[0] != 0;
    if (!fits || (kind == 0 && lowOf(frame) > 7)) {
        const std::string phase = before.consecutive ? "consecutive" : "first or single";
        const std::string row = "reception, " + phase + ": refused " + wordOf(frame);
        compareReception(row, effect, {before.consecutive, flag, 0, "0", 0}, cells);
    } else if (kind == 0) {
        compareReception("reception: single frame", effect,
                         {false, 0, 0, outcome, delivers ? 1U : 0U}, cells);
    } else if (kind == 1 && (lowOf(frame) << 8 | frame.data[1]) >= 7) {
        compareReception("reception: first frame", effect, {true, receiving, 6, "1", 0}, cells);
    } else if (kind == 1) {
        compareReception("reception: first frame of 6 or less", effect,
                         {true, receiving, 0, outcome + "1", delivers ? 1U : 0U}, cells);
    } else if (lowOf(frame) != before.sequence) {
        compareReception("reception: wrong number", effect, {false, 0, 0, "2", 0}, cells);
    } else if (before.remaining < 0) {
        compareReception("reception: less than nothing missing", effect, {false, 0, 0, "2", 0},
                         cells);
    } else if (before.remaining > 7) {
        compareReception("reception: bytes stored", effect,
                         {true, flag, before.spoiled ? 0 : before.received + 7, "", 0}, cells);
    } else if (before.spoiled) {
        compareReception("reception: end of a spoiled message", effect, {false, 0, 0, "", 0},
                         cells);
    } else {
        compareReception("reception: message whole", effect,
                         {false, 0, 0, outcome, delivers ? 1U : 0U}, cells);
    }
}

/// A failed attempt: sent again from its first frame, or given up with the whole queue.
void checkFailure(const std::string& cause, const Effect& effect, Cells& cells)
{
    const bool givenUp = effect.before.retries == CANTransportThread::SEND_RETRY_LIMIT;
    const std::string row = "sender: " + cause + (givenUp ? ", given up" : ", sent again");
    cells.hit(row);
    requireDataFrames(row, effect, givenUp ? 0 : 1);
    require(effect.after.queued == (givenUp ? 0 : effect.before.queued), row, ": queue");
    require(effect.after.retries == (givenUp ? 0 : effect.before.retries + 1), row, ": sendRetry");
    const int flags = givenUp ? 0 : sending | waiting;
    require((effect.after.state & (sending | waiting)) == flags, row, ": flags");
    if (givenUp && effect.before.connected) {
        require(effect.after.state == 0 && effect.after.received == 0 && !effect.after.consecutive,
                row, ": a reception goes on");
    }
}

struct Sender {
    int flags;
    std::size_t queued;
    std::size_t frames;
    int retries;
};

void compareSender(const std::string& row, const Effect& effect, const Sender& expected,
                   Cells& cells)
{
    cells.hit(row);
    require((effect.after.state & (sending | waiting)) == expected.flags, row, ": flags");
    require(effect.after.queued == expected.queued, row, ": queue");
    requireDataFrames(row, effect, expected.frames);
    require(effect.after.retries == expected.retries, row, ": sendRetry");
}

void checkFlowControl(const Frame& frame, const Effect& effect, Cells& cells)
{
    const Snapshot& before = effect.before;
    const int code = lowOf(frame);
    const int flags = before.state & (sending | waiting);
    const bool single = before.frames == 1;
    require(answersOf(effect).empty() && effect.delivered == 0, "an answer is answered");
    if ((before.state & waiting) == 0) {
        compareSender(flags == 0 ? "sender, not sending: answer refused"
                                 : "sender, without a wait: answer refused",
                      effect, {flags, before.queued, 0, before.retries}, cells);
    } else if (code == 0 || code == 2) {
        checkFailure("refusal", effect, cells);
    } else if (code == 3) {
        compareSender("sender, waiting: acknowledged", effect, {0, before.queued - 1, 0, 0}, cells);
        require(effect.after.timerUs == 10000, "acknowledged: timer");
    } else if (code > 3) {
        compareSender("sender, waiting: unknown code", effect,
                      {sending, before.queued, 0, before.retries}, cells);
    } else if (single) {
        compareSender("sender, waiting: ready after a single frame", effect,
                      {0, before.queued, 0, 0}, cells);
        require(effect.after.state == 0, "ready after a single frame: state");
    } else if (before.position == before.frames) {
        compareSender("sender, waiting: ready after a burst", effect,
                      {flags, before.queued, 0, before.retries}, cells);
        require(effect.after.timerUs == before.timerUs, "ready after a burst: timer");
    } else {
        compareSender("sender, waiting: ready", effect,
                      {flags, before.queued, before.frames - 1, 0}, cells);
    }
}

} // namespace

void Tables::checkFrame(const Frame& frame, const Effect& effect, Cells& cells)
{
    if (kindOf(frame) == 3) {
        checkFlowControl(frame, effect, cells);
    } else {
        checkDataFrame(frame, effect, cells);
    }
}

void Tables::checkRequest(const Effect& effect, Cells& cells)
{
    const Snapshot& before = effect.before;
    const int flags = before.state & (sending | waiting);
    if (effect.after.queued == before.queued) {
        compareSender("sender: request too long", effect, {flags, before.queued, 0, before.retries},
                      cells);
    } else if (before.state == 0) {
        compareSender("sender, not sending: request", effect,
                      {sending | waiting, before.queued + 1, 1, before.retries}, cells);
    } else {
        compareSender(flags == 0 ? "sender: request during a reception"
                                 : "sender: request behind another",
                      effect, {flags, before.queued + 1, 0, before.retries}, cells);
    }
}

void Tables::checkExpiry(const Effect& effect, Cells& cells)
{
    const Snapshot& before = effect.before;
    if ((before.state & receiving) != 0) {
        cells.hit("reception: expiry");
        requireAnswers("reception: expiry", effect, "2");
        require(!effect.after.consecutive && effect.after.received == 0 &&
                    (effect.after.state & receiving) == 0,
                "reception: expiry");
    } else {
        require(answersOf(effect).empty(), "an expiry without a reception answers");
    }
    const bool single = before.frames == 1;
    const bool left = before.position + 1 < before.frames;
    if ((before.state & waiting) != 0) {
        checkFailure("expiry", effect, cells);
    } else if ((before.state & sending) == 0) {
        const bool starts = before.queued > 0;
        compareSender(
            starts ? "sender, not sending: expiry starts a message" : "sender, not sending: expiry",
            effect,
            {starts ? sending | waiting : 0, before.queued, starts ? 1U : 0U, before.retries},
            cells);
    } else if (left) {
        compareSender(
            "sender, without a wait: expiry with frames left", effect,
            {sending | waiting, before.queued, before.frames - before.position - 1, before.retries},
            cells);
    } else {
        compareSender(single ? "sender, without a wait: expiry after a single frame"
                             : "sender, without a wait: expiry after a burst",
                      effect, {0, before.queued, 0, before.retries}, cells);
    }
}

void Tables::checkClear(bool includeCurrent, const Effect& effect, Cells& cells)
{
    const Snapshot& before = effect.before;
    const int flags = before.state & (sending | waiting);
    const bool keeps = before.queued == 0 || ((before.state & sending) != 0 && !includeCurrent);
    const std::string what = before.queued == 0              ? "empty"
                             : (before.state & sending) != 0 ? "in progress"
                                                             : "waiting";
    compareSender(
        std::string("clear(") + (includeCurrent ? "true" : "false") + "), " + what, effect,
        {keeps ? flags : 0, keeps ? std::min<std::size_t>(before.queued, 1) : 0, 0, before.retries},
        cells);
    require((effect.after.state & receiving) == (before.state & receiving),
            "clear: RCTS_RECEIVING");
}
