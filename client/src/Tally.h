// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportClient.h"

#include <atomic>
#include <cstdint>

/// The counters of a client. Each has one writer at a time; any thread may read them.
struct Tally {
    using Count = std::atomic<std::uint64_t>;

    Count framesSent{0};
    Count framesReceived{0};
    Count framesIgnored{0};
    Count framesMissed{0};
    Count recordsUnusable{0};
    Count answersDropped{0};
    Count framesDropped{0};
    Count attempts{0};
    Count messagesSent{0};
    Count messagesFailed{0};
    Count messagesReceived{0};
    Count linesLeftOut{0};
    Count statusChangesLeftOut{0};

    CANTransportClient::Counters values() const
    {
        return {framesSent,          framesReceived, framesIgnored,    framesMissed,
                recordsUnusable,     answersDropped, framesDropped,    attempts,
                messagesSent,        messagesFailed, messagesReceived, linesLeftOut,
                statusChangesLeftOut};
    }
};
