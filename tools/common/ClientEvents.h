// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportClient.h"

#include "common/Signals.h"

#include <optional>

/// Waits for the events of a client, and for what ends a program: a signal, and, if it prints messages, a stdout
/// without a reader.
class ClientEvents {
public:
    using Clock = CANTransportClient::Clock;
    using Event = CANTransportClient::Event;

    /// Opens the bus. @param ends created before, so that no thread takes its signals.
    /// @param printsMessages whether it ends if nobody reads stdout.
    ClientEvents(const std::string& bus, const CANTransportClient::Options& options,
                 const Signals& ends, bool printsMessages);

    CANTransportClient client;

    /// @return the next event; none if the deadline has passed, or if `input` is readable or at its end.
    /// @param input a descriptor; -1 for none.
    /// @throws Tool::Interrupted, Tool::OutputClosed, CANTransportClient::BusLost
    std::optional<Event> next(Clock::time_point deadline, int input = -1);

private:
    std::optional<Event> takeEvent();

    const std::string busName;
    const Signals& signals;
    const bool prints;
};
