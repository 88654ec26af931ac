// SPDX-License-Identifier: MIT
#pragma once

#include "simulation/Faults.h"
#include "simulation/Tables.h"
#include "support/Promise.h"

#include <map>
#include <memory>
#include <optional>

/// What arrives at the input pipe of an endpoint.
struct Arrival {
    Frame frame;
    std::optional<Bytes> request{}; ///< The message, if it is no frame.
};

/// What answers in the place of an endpoint that does not listen.
struct StandIn {
    std::vector<int> codes; ///< Of the answers, one at random each time.
    int kinds;              ///< Frames of the kinds below this are answered.
};

/// One endpoint in virtual time, with what its loop waits for. It is driven without its thread; the
/// passes of the loop are made by Simulation.
struct Station {
    explicit Station(unsigned short id) : canID(id) { restart(); }

    void restart()
    {
        inbox.clear();
        endpoint = std::make_unique<Endpoint>();
        endpoint->setSendCANid(canID);
        timed = false;
        clientGone = false;
        proxyGone = false;
    }

    void setClientGone(bool gone)
    {
        if (gone != clientGone) {
            gone ? endpoint->breakClient() : endpoint->mendClient();
            clientGone = gone;
        }
    }

    void setProxyGone(bool gone, bool full)
    {
        gone ? endpoint->breakProxy(full) : endpoint->mendProxy();
        proxyGone = gone;
    }

    /// The end of a pass: what select() would be given.
    void wait(Time now)
    {
        timed = !Access::restIfIdle(*endpoint);
        const Snapshot state = Access::snapshot(*endpoint);
        require(timed == (state.state != 0 || state.queued > 0) && timed == (state.selectedUs != 0),
                "the timer is armed if and only if the endpoint is not at rest");
        require(timed || !state.consecutive, "a receive phase is left behind at rest");
        deadline = now + state.timerUs;
    }

    const unsigned short canID;
    std::unique_ptr<Endpoint> endpoint;
    std::multimap<Time, Arrival> inbox;

    Time busyUntil = 0;
    bool timed = false;
    Time deadline = 0;

    Bytes received;     ///< The last message of the client.
    std::string status; ///< The last one.
    bool clientGone = false;
    bool proxyGone = false;
    std::optional<StandIn> standIn;
};
