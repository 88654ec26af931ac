// SPDX-License-Identifier: MIT
#pragma once

#include "simulation/Station.h"

#include <functional>
#include <ostream>

/// Two endpoints on one bus, from a seed: a workload and faults, then rest, then a fresh message each
/// way. All in one thread and in virtual time.
class Simulation {
public:
    /// @param ladder gets the exchange, a line for each frame; may be null.
    Simulation(std::uint64_t seed, Cells& cellCounts, std::ostream* ladder);
    /// @throws BrokenPromise
    void run();

private:
    static constexpr Time faultsEnd = 12 * second;

    // The workload and its faults.
    Time timeBefore(Time end)
    {
        return static_cast<Time>(random.below(static_cast<std::uint64_t>(end)));
    }
    void planRequests(std::size_t side);
    void planDisturbances();
    void disturb(Station& station, Time start, Time end);
    Bytes request(std::size_t side, std::size_t size);
    void clear(std::size_t side, bool includeCurrent);

    // Time.
    void runUntil(Time end, bool untilRest);
    Time nextEvent() const;
    Time nextOf(const Station& station) const;
    bool atRest() const;
    void pass(Station& station);
    void expectFreshMessage(std::size_t side);

    // One event of an endpoint.
    void feed(Station& station, const Arrival& arrival);
    Effect handle(Station& station, const std::function<void()>& handler) const;
    void observe(Station& station, const Effect& effect);

    // The bus.
    void transmit(Station& from, const Frame& frame, Time departure);
    void deliver(Station& to, const Frame& frame, const char* fate = "");
    void answerInPlaceOf(Station& deaf, const Frame& frame);
    void inject(Station& to);
    void trace(const Station& to, const Frame& frame, const char* fate);
    Station& other(const Station& station) { return &station == &sides[0] ? sides[1] : sides[0]; }

    Random random;
    Cells& cells;
    std::ostream* const trail;
    Faults faults;
    Station sides[2];
    std::multimap<Time, std::function<void()>> actions;
    Time now = 0;
    Time busFree = 0;
};
