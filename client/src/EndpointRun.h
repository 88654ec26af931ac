#pragma once

#include "velk/CANTransportThread.h"

#include <chrono>

/// Runs an endpoint on the calling thread in place of the endpoint's own: a thread between the bus and the
/// program would have to be woken twice for each frame. One thread at a time.
class EndpointRun {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// @param opened is an endpoint after open(), and is never started. Not owned; outlives this object.
    explicit EndpointRun(CANTransportThread& opened);

    /// The endpoint handles the input that waits in its pipe. Takes 10 ms for a refusal.
    void handleInput();
    /// If the endpoint's timer is due, the endpoint handles that. @return whether it was due.
    bool handleExpiry();
    /// @return when the endpoint's timer is due; Time::max() if none runs.
    Time wakeAt() const { return deadline; }

private:
    void endPass();

    CANTransportThread& endpoint;
    Time deadline = Time::max();
};
