// SPDX-License-Identifier: MIT
#include "simulation/Effect.h"

#include "velk/Millisleep.h"

namespace {

Endpoint* handling = nullptr;
Effect* underWay = nullptr;

} // namespace

/// Takes the place of the real one, and takes no time.
void millisleep(int milliseconds)
{
    underWay->sleptMs += milliseconds;
    underWay->retriesInPause = Access::snapshot(*handling).retries;
}

Effect effectOf(Endpoint& endpoint, const std::function<void()>& handler)
{
    Effect effect;
    handling = &endpoint;
    underWay = &effect;
    effect.before = Access::snapshot(endpoint);
    handler();
    Access::checkInvariants(endpoint);
    effect.after = Access::snapshot(endpoint);
    effect.sent = endpoint.sentFrames();
    effect.delivered = endpoint.delivered();
    effect.deliveredId = endpoint.lastDeliveredId;
    effect.statuses = endpoint.statuses();
    effect.timerAtStatus = endpoint.timerAtStatus;
    effect.stateAtStatus = endpoint.stateAtStatus;
    return effect;
}
