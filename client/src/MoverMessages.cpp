// SPDX-License-Identifier: MIT
#include "Mover.h"

#include <utility>

// The outcome of the message that the queue has handed over, and the messages that the endpoint received.

namespace {

using namespace std::chrono_literals;

constexpr std::size_t messagesBeyond = 64;
constexpr auto abandonedTime = 1s; ///< The longest wait for the outcome of a withdrawn message.

} // namespace

void Mover::onStatus(CANTransportClient::StatusChange change)
{
    switch (change.status) {
    case CANTransportThread::CTT_CONNECTED:
        muted = false;
        break;
    case CANTransportThread::CTT_ACKNOWLEDGED:
        endStage(RequestQueue::Result::acknowledged);
        break;
    case CANTransportThread::CTT_DISCONNECTED:
    case CANTransportThread::CTT_SEND_TIMEOUT:
        muted = true;
        report(change, onGiveUp());
        return;
    case CANTransportThread::CTT_RECEIVE_TIMEOUT:
        break;
    }
    report(change, true);
}

/// @return whether the peer was heard.
bool Mover::onGiveUp()
{
    if (!retrial) { // nothing was handed over
        return false;
    }
    const Retrial::Decision decision = retrial->givenUp(now);
    switch (decision.verdict) {
    case Retrial::Verdict::again:
        if (stage == Stage::withEndpoint) {
            stage = Stage::resting;
            stageEnd = decision.at;
        } else {
            endStage(RequestQueue::Result::refused);
        }
        return true;
    case Retrial::Verdict::refused:
        endStage(RequestQueue::Result::refused);
        return true;
    case Retrial::Verdict::noAnswer:
        break;
    }
    endStage(RequestQueue::Result::noAnswer);
    return false;
}

void Mover::endStage(RequestQueue::Result result)
{
    if (std::exchange(stage, Stage::none) != Stage::none) {
        around.queue.finish(result); // reports nothing for an abandoned message
    }
}

void Mover::report(CANTransportClient::StatusChange change, bool peerAnswers)
{
    const auto heard = around.filter.filter(change, peerAnswers);
    if (!heard) {
        return;
    }
    around.queue.report(*heard);
    if (around.options.statusHandler) {
        try {
            around.options.statusHandler(heard->status, heard->value);
        } catch (...) { // from the program's handler: it must not end the connection
        }
    }
}

/// While a message is with the endpoint, its answers have to be read, and messages may come before them.
bool Mover::hasRoom() { return around.queue.hasRoom(stage == Stage::none ? 0 : messagesBeyond); }

void Mover::takeMessages()
{
    while (hasRoom()) {
        auto received = port->takeMessage();
        if (!received) {
            return;
        }
        around.queue.deliver(std::move(*received));
    }
}

/// The endpoint keeps a withdrawn message until its outcome is known, for a second at most: a late answer
/// would end the next message. After that second a fresh endpoint replaces it, which costs nothing, as the
/// peer does not answer.
void Mover::abandonWithdrawn()
{
    if (stage == Stage::none || !(stopping || around.queue.isWithdrawn())) {
        return;
    }
    if (stage == Stage::withEndpoint) {
        stage = Stage::abandoned;
        stageEnd = now + abandonedTime;
    }
    if (stage == Stage::abandoned && now >= stageEnd) {
        openPort();
        stage = Stage::resting;
    }
    if (stage == Stage::resting) {
        endStage(RequestQueue::Result::cancelled);
    }
}

void Mover::handOver()
{
    if (port->isBehind()) { // a fresh endpoint would miss what this one has got
        return;
    }
    Clock::time_point deadline{};
    if (stage == Stage::resting && now >= stageEnd) {
        giveToEndpoint();
    } else if (stage == Stage::none && !stopping && around.queue.hasRoom() &&
               around.queue.handOver(message, deadline)) {
        retrial.emplace(deadline);
        giveToEndpoint();
    }
}

void Mover::giveToEndpoint()
{
    if (muted) { // a second failure would go unreported
        openPort();
    }
    stage = Stage::withEndpoint;
    retrial->handedOver();
    port->addRequest(message);
}
