// SPDX-License-Identifier: MIT
#pragma once

#include "common/ClientEvents.h"
#include "send/MessageSource.h"
#include "send/SendOptions.h"

#include <cstdint>
#include <optional>

/// Sends messages one after the other. Waits for the outcome of each, and then for a reply if one is expected.
class Sender {
public:
    using Bytes = MessageSource::Bytes;

    Sender(const SendOptions& sendOptions, const Signals& signals);

    /// @throws Tool::Failure if the message is not acknowledged, or if no reply comes in time.
    void send(const Bytes& message);
    /// Drops messages of the peer, until something can be read from the descriptor.
    void waitForInput(int descriptor);

    std::uint64_t acknowledged() const { return messages; }

private:
    using Result = CANTransportClient::SendResult;

    Result outcome();
    std::string reasonFor(Result result, std::uint64_t attempts) const;
    void printReply();

    const SendOptions& options;
    ClientEvents events;
    std::uint64_t messages = 0; ///< Acknowledged ones.
    std::optional<CANTransportClient::Message> reply;
};
