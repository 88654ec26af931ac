// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportGate.h"

#include "Retrial.h"
#include "simulation/Cells.h"
#include "simulation/Faults.h"
#include "support/Endpoint.h"

#include <deque>
#include <optional>

using Frame = CANTransportThread::TPCANMsg;

/// An endpoint in virtual time with a small model of the client around it: messages are handed over one
/// at a time, each as soon as the outcome of the one before is known.
class Client {
public:
    static constexpr Time never = INT64_MAX;

    /// @param reach Frames between the gate and the bus, at most. 0: no gate and no retrial.
    Client(unsigned short canID, std::size_t reach, std::vector<Bytes> toSend, Cells& cellCounts);

    /// A frame of the peer has come from the bus.
    void hear(const Frame& frame, Time now);
    /// Does everything that is due.
    void pass(Time now);
    /// @return when something is due if nothing comes from the bus.
    Time next(Time now) const;
    bool done() const { return outcomes.size() == messages.size(); }

    const unsigned short id;
    const std::vector<Bytes> messages;
    std::vector<bool> outcomes; ///< Of the messages: acknowledged, or given up.
    std::vector<Bytes> arrived; ///< Messages of the peer.
    std::deque<Frame> toBus;    ///< Out of the gate's reach.
    CANTransportGate gate;

private:
    void runEndpoint(Time now);
    void handle(const std::optional<Frame>& input);
    void takeOutcome(Time now);
    void feedBus(Time now);

    Cells& cells;
    const std::size_t outOfReach;
    Endpoint endpoint;
    std::deque<std::optional<Frame>> inbox; ///< Without a frame: the request.
    bool handedOver = false;                ///< The endpoint has the request.
    Time handOverAt = 0;
    Retrial retrial{CANTransportGate::Time::max()}; ///< Of the message that is to be sent.
    bool waiting = false;                           ///< The endpoint, for input or its timer.
    Time awakeAt = 0; ///< It sleeps until then; what it has written leaves it then.
    Time deadline = never;
};
