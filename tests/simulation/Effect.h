// SPDX-License-Identifier: MIT
#pragma once

#include "support/Endpoint.h"

#include <functional>

using Frame = CANTransportThread::TPCANMsg;
using Snapshot = Access::Snapshot;

/// What one event did to an endpoint, as far as it can be seen.
struct Effect {
    Snapshot before{};
    Snapshot after{};
    std::vector<Frame> sent{};
    std::vector<Bytes> delivered{};
    std::uint32_t deliveredId = 0; ///< Of the last one.
    Lines statuses{};
    int sleptMs = 0;
    int retriesInPause = -1; ///< `sendRetry` when the endpoint slept.
    int stateAtStatus = -1;  ///< `state` in the last report.
    long timerAtStatus = -1;
    bool clientGone = false; ///< The client's pipe takes nothing.
    bool proxyGone = false;  ///< Nor does the proxy: no frame can be seen.
};

/// Lets an endpoint handle an event. A millisleep() in it takes no time.
Effect effectOf(Endpoint& endpoint, const std::function<void()>& handler);
