#include "simulation/Simulation.h"

#include <algorithm>

namespace {

const StandIn standIns[] = {
    {"fault: a silent peer", {}, 0},
    {"fault: a peer that refuses everything", {0, 2}, 3},
    {"fault: a peer that is ready for ever", {1}, 2},
    {"fault: a peer that answers unknown codes", {4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}, 3},
    {"fault: a peer that acknowledges everything", {3}, 3},
};

} // namespace

void Simulation::planDisturbances()
{
    for (std::uint64_t left = random.chance(0.6) ? random.between(1, 3) : 0; left > 0; --left) {
        const Time start = timeBefore(faultsEnd);
        const Time length = static_cast<Time>(random.between(1, 8000)) * ms;
        disturb(random.below(2), start, std::min(start + length, faultsEnd - 1));
    }
    for (std::uint64_t left = random.chance(0.2) ? random.between(1, 30) : 0; left > 0; --left) {
        const std::size_t side = random.below(2);
        const bool includeCurrent = random.chance(0.5);
        actions.emplace(timeBefore(faultsEnd),
                        [this, side, includeCurrent] { clear(side, includeCurrent); });
    }
}

void Simulation::disturb(std::size_t side, Time start, Time end)
{
    Station& station = sides[side];
    const auto during = [&](const char* cell, const auto& begin, const auto& finish) {
        actions.emplace(start, [this, cell, begin] {
            cells.hit(cell);
            begin();
        });
        actions.emplace(end, finish);
    };
    const auto kind = random.below(std::size(standIns) + 4);
    switch (kind) {
    case 0:
    case 1: {
        const bool full = kind == 0;
        return during(
            full ? "fault: the proxy is full (EAGAIN)" : "fault: the proxy is gone (EPIPE)",
            [&station, full] { station.setProxyGone(true, full); },
            [&station] { station.setProxyGone(false); });
    }
    case 2:
        return during(
            "fault: the client's pipe takes nothing", [&station] { station.setClientGone(true); },
            [&station] { station.setClientGone(false); });
    case 3:
        actions.emplace(start, [this, side] { restart(side); });
        return;
    default: {
        const StandIn& standIn = standIns[kind - 4];
        return during(
            standIn.cell, [&station, &standIn] { station.standIn = &standIn; },
            [&station] { station.standIn = nullptr; });
    }
    }
}

void Simulation::clear(std::size_t side, bool includeCurrent)
{
    Station& station = sides[side];
    const Effect effect = handle(station, [&] { station.endpoint->clear(includeCurrent); });
    Tables::checkClear(includeCurrent, effect, cells);
}

void Simulation::restart(std::size_t side)
{
    cells.hit("fault: a peer that restarts");
    sides[side].inbox.clear();
    sides[side].restart();
}
