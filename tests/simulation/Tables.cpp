// SPDX-License-Identifier: MIT
#include "simulation/Tables.h"

#include "support/Promise.h"

#include <algorithm>
#include <sstream>

namespace {

using Frames = std::vector<Frame>;
constexpr int sending = CANTransportThread::RCTS_SENDING;
constexpr int receiving = CANTransportThread::RCTS_RECEIVING;
constexpr int waiting = CANTransportThread::RCTS_WAIT_FOR_FC;
constexpr long second = 1000000; ///< Of the timer.

int kindOf(const Frame& frame) { return frame.data[0] >> 4; }
int lowOf(const Frame& frame) { return frame.data[0] & 0x0F; }

/// What an event has to leave behind: whatever a row does not name stays as it was.
struct Expected : Snapshot {
    explicit Expected(const Effect& effect) : Snapshot(effect.before) {}

    void hear()
    {
        statuses += connected ? "" : "CTT_CONNECTED 0 ";
        reportFailure = reportFailure || !connected;
        connected = true;
    }
    void endReception()
    {
        state &= ~receiving;
        consecutive = false;
        received.clear();
    }
    void sender(int flags, std::size_t frameOfMessage = 0)
    {
        state = (state & receiving) | flags;
        position = frameOfMessage;
    }
    /// The front message has to leave, from its first frame or up to its end.
    void send(std::size_t count, std::size_t frameOfMessage = 0)
    {
        sender(sending | waiting, frameOfMessage);
        dataFrames = count;
        timerUs = second;
    }

    std::string answers{};
    std::string statuses{};
    std::size_t dataFrames = 0;
    std::vector<Bytes> delivered{};
    std::uint32_t deliveredId = 0;
};

template <typename Value>
void same(const std::string& row, const char* what, const Value& is, const Value& expected)
{
    if (is != expected) {
        std::ostringstream text;
        text << row << ": " << what << " is " << is << ", expected " << expected;
        throw BrokenPromise(text.str());
    }
}

bool alike(const Frames& one, const Frames& other)
{
    return std::equal(
        one.begin(), one.end(), other.begin(), other.end(), [](const Frame& a, const Frame& b) {
            return a.canID == b.canID && a.len == b.len && std::equal(a.data, a.data + 8, b.data);
        });
}

void compare(const std::string& row, const Effect& effect, const Expected& expected, Cells& cells)
{
    const Snapshot& after = effect.after;
    std::string statuses;
    for (const std::string& status : effect.statuses) {
        statuses += status + ' ';
        cells.hit("status: " + status.substr(0, status.find(' ')));
    }
    std::string answers; ///< Codes of the flow-control frames: "31".
    Frames sent;         ///< The others.
    for (const Frame& frame : effect.sent) {
        if (kindOf(frame) == 3) {
            answers += std::to_string(lowOf(frame));
        } else {
            sent.push_back(frame);
        }
    }
    cells.hit(row);
    same(row, "state", after.state, expected.state);
    same(row, "phase", after.consecutive, expected.consecutive);
    same(row, "sequenceCounter", after.sequence, expected.sequence);
    same(row, "remainingLength", after.remaining, expected.remaining);
    same(row, "size of receiveBuffer", after.received.size(), expected.received.size());
    same(row, "receiveBuffer as expected", after.received == expected.received, true);
    same(row, "receptionSpoiled", after.spoiled, expected.spoiled);
    same(row, "size of sendQueue", after.queued, expected.queued);
    same(row, "msgPart", after.position, expected.position);
    same(row, "sendRetry", after.retries, expected.retries);
    same(row, "timer", after.timerUs, expected.timerUs);
    same(row, "connected", after.connected, expected.connected);
    same(row, "reportFailure", after.reportFailure, expected.reportFailure);
    same(row, "statuses", statuses, expected.statuses);
    same(row, "answers", answers, effect.proxyGone ? "" : expected.answers);
    Frames dataFrames;
    if (expected.dataFrames > 0 && !effect.proxyGone) {
        const auto end = expected.position == 0 ? after.front.begin() + 1 : after.front.end();
        dataFrames.assign(end - static_cast<std::ptrdiff_t>(expected.dataFrames), end);
    }
    same(row, "data frames", sent.size(), dataFrames.size());
    same(row, "data frames as queued", alike(sent, dataFrames), true);
    same(row, "deliveries", effect.delivered.size(), expected.delivered.size());
    same(row, "delivered as received", effect.delivered == expected.delivered, true);
    if (!effect.delivered.empty()) {
        same(row, "id of the delivery", effect.deliveredId, expected.deliveredId);
    }
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
    const bool fits =
        kind == 2 ? before.consecutive : kind < 2 && !before.consecutive && frame.data[0] != 0;
    const int length = kind == 0 ? lowOf(frame) : lowOf(frame) << 8 | frame.data[1];
    std::string row = "reception: message whole";
    Expected then(effect);
    then.hear();
    bool whole = false;
    bool ended = false;
    if (!fits || (kind == 0 && length > 7)) {
        const std::string phase = before.consecutive ? "consecutive" : "first or single";
        row = "reception, " + phase + ": refused " + wordOf(frame);
        then.received.clear();
        then.spoiled = before.consecutive;
        then.answers = "0";
    } else if (kind == 2 && (lowOf(frame) != before.sequence || before.remaining < 0)) {
        row = lowOf(frame) != before.sequence ? "reception: wrong number"
                                              : "reception: less than nothing missing";
        then.endReception();
        then.answers = "2";
    } else if (kind == 2) {
        then.sequence = (before.sequence + 1) % 16;
        then.remaining = std::max(0, before.remaining - 7);
        whole = then.remaining == 0 && !before.spoiled;
        const int count = before.spoiled ? 0 : before.remaining - then.remaining;
        then.received.insert(then.received.end(), frame.data + 1, frame.data + 1 + count);
        row = then.remaining > 0 ? "reception: bytes stored"
              : before.spoiled   ? "reception: end of a spoiled message"
                                 : row;
        ended = then.remaining == 0;
    } else {
        row = kind == 0    ? "reception: single frame"
              : length > 6 ? "reception: first frame"
                           : "reception: first frame of 6 or less";
        whole = ended = kind == 0 || length <= 6;
        then.endReception();
        then.received.assign(frame.data + 1 + kind, frame.data + (kind == 0 ? 1 + length : 8));
        then.spoiled = false;
        then.remaining = kind == 0 ? 0 : length - 6;
        then.timerUs = second;
    }
    if (whole) {
        then.delivered.assign(effect.clientGone ? 0 : 1, then.received);
        then.deliveredId = frame.canID & 0xFFFFU;
        then.answers = effect.clientGone ? "2" : "3";
    }
    if (ended) {
        then.endReception();
    }
    if (fits && kind == 1) {
        then.sequence = 0;
        then.state |= receiving;
        then.consecutive = true;
        then.answers += "1";
    }
    compare(row, effect, then, cells);
}

/// A failed attempt: sent again from its first frame, or given up with the whole queue.
void checkFailure(const std::string& cause, const Effect& effect, Expected then, Cells& cells)
{
    const bool givenUp = effect.before.retries == CANTransportThread::SEND_RETRY_LIMIT;
    if (!givenUp) {
        ++then.retries;
        then.send(1);
    } else {
        then.sender(0);
        then.retries = 0;
        then.queued = 0;
        if (then.reportFailure) {
            then.statuses += then.connected ? "CTT_DISCONNECTED 0 " : "CTT_SEND_TIMEOUT 0 ";
            then.reportFailure = false;
        }
        if (then.connected) {
            then.connected = false;
            then.endReception();
        } else {
            then.timerUs = second;
        }
    }
    compare("sender: " + cause + (givenUp ? ", given up" : ", sent again"), effect, then, cells);
}

void checkFlowControl(const Frame& frame, const Effect& effect, Cells& cells)
{
    const Snapshot& before = effect.before;
    const int code = lowOf(frame);
    const bool refused = code == 0 || code == 2;
    std::string row = "sender, waiting: unknown code";
    Expected then(effect);
    then.hear();
    then.sender(before.state & sending, before.position);
    if ((before.state & waiting) == 0) {
        row = (before.state & sending) == 0 ? "sender, not sending: answer refused"
                                            : "sender, without a wait: answer refused";
    } else if (refused) {
        same("sender: refusal", "sendRetry in the pause", effect.retriesInPause, before.retries);
        checkFailure("refusal", effect, then, cells);
        return;
    } else if (code == 3) {
        row = "sender, waiting: acknowledged";
        then.statuses += "CTT_ACKNOWLEDGED " + std::to_string(before.front[0].data[1]) + ' ';
        same(row, "state in the report", effect.stateAtStatus, before.state & ~waiting);
        then.sender(0);
        then.consecutive = false;
        then.queued = before.queued - 1;
        then.retries = 0;
        then.timerUs = second / 100;
    } else if (code == 1 && before.front.size() == 1) {
        row = "sender, waiting: ready after a single frame";
        then.sender(0);
        then.state = 0;
        then.retries = 0;
    } else if (code == 1 && before.position == before.front.size()) {
        row = "sender, waiting: ready after a burst";
        then.state = before.state;
    } else if (code == 1) {
        row = "sender, waiting: ready";
        then.retries = 0;
        then.send(before.front.size() - 1, before.front.size());
    }
    compare(row, effect, then, cells);
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

void Tables::checkRequest(const Bytes& message, const Effect& effect, Cells& cells)
{
    const Snapshot& before = effect.before;
    std::string row = "sender: request too long";
    Expected then(effect);
    if (message.size() <= 4095) {
        ++then.queued;
        auto frames = cut(message);
        for (Frame& frame : frames) {
            frame.canID = before.ownId;
        }
        same(row, "frames", alike(effect.after.back, frames), true);
        row = (before.state & sending) == 0 ? "sender: request during a reception"
                                            : "sender: request behind another";
        if (before.state == 0) {
            row = "sender, not sending: request";
            then.send(1);
        }
    }
    compare(row, effect, then, cells);
}

void Tables::checkExpiry(const Effect& effect, Cells& cells)
{
    const Snapshot& before = effect.before;
    Expected then(effect);
    then.timerUs = before.selectedUs; // starts again before anything else
    if (!effect.statuses.empty()) {
        same("expiry", "timer in the report", effect.timerAtStatus, before.selectedUs);
    }
    if ((before.state & receiving) != 0) {
        cells.hit("reception: expiry");
        then.endReception();
        then.answers = "2";
        then.statuses = "CTT_RECEIVE_TIMEOUT 0 ";
    }
    std::string row = "sender, not sending: expiry";
    if ((before.state & waiting) != 0) {
        checkFailure("expiry", effect, then, cells);
        return;
    }
    if ((before.state & sending) == 0) {
        if (before.queued > 0) {
            row += " starts a message";
            then.send(1);
        }
    } else if (before.position + 1 < before.front.size()) {
        row = "sender, without a wait: expiry with frames left";
        then.send(before.front.size() - before.position - 1, before.front.size());
    } else {
        row = before.front.size() == 1 ? "sender, without a wait: expiry after a single frame"
                                       : "sender, without a wait: expiry after a burst";
        then.sender(0);
        then.state = 0;
    }
    compare(row, effect, then, cells);
}

void Tables::checkClear(bool includeCurrent, const Effect& effect, Cells& cells)
{
    const Snapshot& before = effect.before;
    Expected then(effect);
    const std::string what = before.queued == 0              ? "empty"
                             : (before.state & sending) != 0 ? "in progress"
                                                             : "waiting";
    if (what == "in progress" && !includeCurrent) {
        then.queued = 1;
    } else if (what != "empty") {
        then.sender(0);
        then.queued = 0;
    }
    compare(std::string("clear(") + (includeCurrent ? "true" : "false") + "), " + what, effect,
            then, cells);
}
