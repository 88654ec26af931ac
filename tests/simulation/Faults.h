// SPDX-License-Identifier: MIT
#pragma once

#include "simulation/Random.h"

#include <cstdint>

/// Virtual time, in microseconds.
using Time = std::int64_t;
constexpr Time ms = 1000;
constexpr Time second = 1000 * ms;

/// What one run meets, drawn from its seed. Rates are probabilities for each frame.
struct Faults {
    double loss = 0;
    double duplicate = 0;
    double stray = 0;
    double stall = 0; ///< The bus stands still for up to 3 s.

    static Faults draw(Random& random)
    {
        const auto rate = [&](double share, double most) {
            return random.chance(share) ? most * static_cast<double>(random.between(1, 100)) / 100
                                        : 0;
        };
        Faults faults;
        faults.loss = random.chance(0.3) ? rate(0.7, 0.3) : rate(0.5, 0.01);
        faults.duplicate = random.chance(0.3) ? rate(0.5, 0.3) : rate(0.5, 0.01);
        faults.stray = rate(0.4, 0.02);
        faults.stall = rate(0.2, 0.01);
        return faults;
    }
};
