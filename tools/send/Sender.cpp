// SPDX-License-Identifier: MIT
#include "send/Sender.h"

#include "common/CANId.h"

namespace {

using Clock = CANTransportClient::Clock;

CANTransportClient::Options clientOptions(const SendOptions& options)
{
    auto result = Tool::clientOptions(options.connection);
    if (options.replyMs == 0) {
        result.queueLength = 0;
    }
    return result;
}

Clock::time_point after(std::uint64_t milliseconds)
{
    return Clock::now() + std::chrono::milliseconds(milliseconds);
}

} // namespace

Sender::Sender(const SendOptions& sendOptions, const Signals& signals)
    : options(sendOptions),
      events(sendOptions.connection.bus, clientOptions(sendOptions), signals,
             sendOptions.replyMs != 0)
{
}

void Sender::send(const Bytes& message)
{
    while (events.next(Clock::now())) { // what came before is no reply
    }
    reply.reset();
    const std::uint64_t attemptsBefore = events.client.counters().attempts;
    if (options.timeoutMs == 0) {
        events.client.submit(message);
    } else {
        events.client.submit(message, after(options.timeoutMs));
    }
    const Result result = outcome();
    if (result != Result::acknowledged) {
        throw Tool::Failure(
            Tool::exitFailed,
            "given up: " + reasonFor(result, events.client.counters().attempts - attemptsBefore));
    }
    ++messages;
    if (options.replyMs != 0) {
        printReply();
    }
}

/// A reply can come first, if the acknowledgement before it was lost.
Sender::Result Sender::outcome()
{
    while (true) {
        auto event = events.next(Clock::time_point::max());
        if (const auto* const known = std::get_if<CANTransportClient::Outcome>(&*event)) {
            return known->result;
        }
        auto* const message = std::get_if<CANTransportClient::Message>(&*event);
        if (message != nullptr && !reply) {
            reply = std::move(*message);
        }
    }
}

std::string Sender::reasonFor(Result result, std::uint64_t attempts) const
{
    const std::string peer = canIdText(options.connection.peerId);
    switch (result) {
    case Result::noAnswer:
        return "no frame from " + peer + " in " + std::to_string(attempts) +
               " attempts; are -s and -d swapped?";
    case Result::refused:
        return peer + " refused it " + std::to_string(attempts) + " times";
    case Result::expired:
        return "no acknowledgement from " + peer + " in time";
    case Result::acknowledged:
    case Result::cancelled:
    case Result::busLost:
        break;
    }
    throw CANTransportClient::BusLost(options.connection.bus);
}

void Sender::printReply()
{
    const auto deadline = after(options.replyMs);
    while (!reply) {
        auto event = events.next(deadline);
        if (!event) {
            throw Tool::Failure(Tool::exitFailed,
                                "no reply within " + std::to_string(options.replyMs) + " ms");
        }
        if (auto* const message = std::get_if<CANTransportClient::Message>(&*event)) {
            reply = std::move(*message);
        }
    }
    print(*reply, options.format);
}

void Sender::waitForInput(int descriptor)
{
    while (events.next(Clock::time_point::max(), descriptor)) {
    }
}
