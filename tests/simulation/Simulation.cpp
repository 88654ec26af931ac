// SPDX-License-Identifier: MIT
#include "simulation/Simulation.h"

#include <algorithm>

namespace {

constexpr Time restWithin = 1200 * second;
constexpr std::size_t sizes[] = {0, 1, 7, 8, 13, 14, 118, 119, 300, 4095};

} // namespace

Simulation::Simulation(std::uint64_t seed, Cells& cellCounts, std::ostream* ladder)
    : random(seed),
      cells(cellCounts),
      trail(ladder),
      faults(Faults::draw(random)),
      sides{Station(0x123), Station(0x456)}
{
}

void Simulation::run()
{
    planRequests(0);
    if (random.chance(0.7)) {
        planRequests(1);
    }
    planDisturbances();
    runUntil(faultsEnd, false);
    faults = {};
    runUntil(now + restWithin, true);
    require(atRest(), "the endpoints do not come to rest");
    for (const std::size_t side : {0U, 1U}) {
        expectFreshMessage(side);
    }
}

void Simulation::expectFreshMessage(std::size_t side)
{
    const Bytes message = request(side, 4095);
    runUntil(now + 60 * second, true);
    require(sides[1 - side].received == message && sides[side].status == "CTT_ACKNOWLEDGED 255",
            "a fresh message does not get through after the faults");
}

void Simulation::planRequests(std::size_t side)
{
    const std::uint64_t bursts = random.between(1, 4);
    for (std::uint64_t i = 0; i < bursts; ++i) {
        const Time at = timeBefore(faultsEnd);
        for (std::uint64_t left = random.chance(0.3) ? random.between(2, 6) : 1; left > 0; --left) {
            // Long messages are as rare as they are slow; the fresh ones at the end are 4095 long.
            const std::size_t size =
                random.chance(0.02) ? 4096 : sizes[random.below(random.chance(0.1) ? 10 : 9)];
            actions.emplace(at, [this, side, size] { request(side, size); });
        }
    }
}

Bytes Simulation::request(std::size_t side, std::size_t size)
{
    Bytes message(size);
    std::generate(message.begin(), message.end(),
                  [this] { return static_cast<unsigned char>(random.below(256)); });
    sides[side].inbox.emplace(now, Arrival{{}, message});
    return message;
}

void Simulation::runUntil(Time end, bool untilRest)
{
    while (!(untilRest && atRest())) {
        const Time next = nextEvent();
        if (next > end) {
            now = end;
            return;
        }
        now = next;
        if (!actions.empty() && actions.begin()->first <= now) {
            const auto action = std::move(actions.begin()->second);
            actions.erase(actions.begin());
            action();
        } else {
            pass(nextOf(sides[0]) <= nextOf(sides[1]) ? sides[0] : sides[1]);
        }
    }
}

Time Simulation::nextEvent() const
{
    const Time action = actions.empty() ? INT64_MAX : std::max(now, actions.begin()->first);
    return std::min({action, nextOf(sides[0]), nextOf(sides[1])});
}

Time Simulation::nextOf(const Station& station) const
{
    Time next = station.timed ? station.deadline : INT64_MAX;
    if (!station.inbox.empty()) {
        next = std::min(next, station.inbox.begin()->first);
    }
    return next == INT64_MAX ? next : std::max({now, station.busyUntil, next});
}

bool Simulation::atRest() const
{
    return actions.empty() && sides[0].inbox.empty() && sides[1].inbox.empty() && !sides[0].timed &&
           !sides[1].timed;
}

/// One pass of the loop: input that waits comes before an expiry.
void Simulation::pass(Station& station)
{
    const bool input = !station.inbox.empty() && station.inbox.begin()->first <= now;
    if (input) {
        if (station.timed) {
            Access::setTimeLeft(*station.endpoint, std::max<Time>(0, station.deadline - now));
        }
        const Time arrived = now;
        while (!station.inbox.empty() && station.inbox.begin()->first <= arrived) {
            const Arrival arrival = std::move(station.inbox.begin()->second);
            station.inbox.erase(station.inbox.begin());
            feed(station, arrival);
        }
    } else {
        const Effect effect = handle(station, [&] { Access::expire(*station.endpoint); });
        observe(station, effect);
        Tables::checkExpiry(effect, cells);
    }
    station.wait(station.busyUntil);
}

void Simulation::feed(Station& station, const Arrival& arrival)
{
    if (arrival.request) {
        const Effect effect = handle(station, [&] { station.endpoint->request(*arrival.request); });
        observe(station, effect);
        Tables::checkRequest(*arrival.request, effect, cells);
    } else {
        station.endpoint->write(recordOf(arrival.frame));
        const Effect effect = handle(station, [&] { station.endpoint->takeInput(); });
        observe(station, effect);
        Tables::checkFrame(arrival.frame, effect, cells);
    }
}

Effect Simulation::handle(Station& station, const std::function<void()>& handler) const
{
    Effect effect = effectOf(*station.endpoint, handler);
    effect.clientGone = station.clientGone;
    effect.proxyGone = station.proxyGone;
    station.busyUntil = std::max(now, station.busyUntil) + effect.sleptMs * ms;
    return effect;
}

/// Hands the frames that have left the endpoint to the bus.
void Simulation::observe(Station& station, const Effect& effect)
{
    for (const Frame& frame : effect.sent) {
        transmit(station, frame, station.busyUntil);
    }
    station.received = effect.delivered.empty() ? station.received : effect.delivered.back();
    station.status = effect.statuses.empty() ? station.status : effect.statuses.back();
}
