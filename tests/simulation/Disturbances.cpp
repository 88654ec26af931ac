// SPDX-License-Identifier: MIT
#include "simulation/Simulation.h"

#include <algorithm>
#include <utility>

namespace {

/// What happens to a side for some time.
struct Disturbance {
    const char* cell;
    std::function<void(Station&, bool begins)> set;
};

/// Something else answers in the place of the peer.
std::function<void(Station&, bool)> answering(std::vector<int> codes, int kinds)
{
    return [standIn = StandIn{std::move(codes), kinds}](Station& station, bool begins) {
        station.standIn = begins ? std::optional(standIn) : std::nullopt;
    };
}

const Disturbance disturbances[] = {
    {"fault: the proxy is full (EAGAIN)",
     [](Station& station, bool begins) { station.setProxyGone(begins, true); }},
    {"fault: the proxy is gone (EPIPE)",
     [](Station& station, bool begins) { station.setProxyGone(begins, false); }},
    {"fault: the client's pipe takes nothing",
     [](Station& station, bool begins) { station.setClientGone(begins); }},
    {"fault: a peer that restarts",
     [](Station& station, bool begins) { begins ? station.restart() : void(); }},
    {"fault: a silent peer", answering({}, 0)},
    {"fault: a peer that refuses everything", answering({0, 2}, 3)},
    {"fault: a peer that is ready forever", answering({1}, 2)},
    {"fault: a peer that answers unknown codes",
     answering({4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}, 3)},
    {"fault: a peer that acknowledges everything", answering({3}, 3)},
};

} // namespace

void Simulation::planDisturbances()
{
    for (std::uint64_t left = random.chance(0.6) ? random.between(1, 3) : 0; left > 0; --left) {
        const Time start = timeBefore(faultsEnd);
        const Time length = static_cast<Time>(random.between(1, 8000)) * ms;
        disturb(sides[random.below(2)], start, std::min(start + length, faultsEnd - 1));
    }
    for (std::uint64_t left = random.chance(0.2) ? random.between(1, 30) : 0; left > 0; --left) {
        const std::size_t side = random.below(2);
        const bool includeCurrent = random.chance(0.5);
        actions.emplace(timeBefore(faultsEnd),
                        [this, side, includeCurrent] { clear(side, includeCurrent); });
    }
}

void Simulation::disturb(Station& station, Time start, Time end)
{
    const Disturbance& disturbance = disturbances[random.below(std::size(disturbances))];
    actions.emplace(start, [this, &disturbance, &station] {
        cells.hit(disturbance.cell);
        disturbance.set(station, true);
    });
    actions.emplace(end, [&disturbance, &station] { disturbance.set(station, false); });
}

void Simulation::clear(std::size_t side, bool includeCurrent)
{
    Station& station = sides[side];
    const Effect effect = handle(station, [&] { station.endpoint->clear(includeCurrent); });
    Tables::checkClear(includeCurrent, effect, cells);
}
