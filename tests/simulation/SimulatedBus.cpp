// SPDX-License-Identifier: MIT
#include "common/FrameWords.h"
#include "simulation/Simulation.h"

#include <algorithm>
#include <iomanip>

namespace {

constexpr Time frameTime = 120; // at about 1 Mbit/s

Frame frameOf(unsigned int first, std::uint32_t canID, Random& random)
{
    Frame frame{canID, 8, {}};
    for (std::uint8_t& byte : frame.data) {
        byte = static_cast<std::uint8_t>(random.below(256));
    }
    frame.data[0] = static_cast<std::uint8_t>(first);
    return frame;
}

} // namespace

/// A frame that an endpoint has sent, through the faults of the bus to the other.
void Simulation::transmit(Station& from, const Frame& frame, Time departure)
{
    Station& to = other(from);
    busFree = std::max(busFree, departure) + frameTime;
    if (random.chance(faults.stall)) {
        cells.hit("fault: bus stalled");
        busFree += static_cast<Time>(random.below(3000)) * ms;
    }
    if (to.standIn) {
        trace(to, frame, "not heard");
        answerInPlaceOf(to, frame);
        return;
    }
    if (random.chance(faults.loss)) {
        cells.hit("fault: lost");
        trace(to, frame, "lost");
    } else {
        deliver(to, frame);
    }
    if (random.chance(faults.duplicate)) {
        cells.hit("fault: doubled");
        busFree += frameTime;
        deliver(to, frame, "again");
    }
    if (random.chance(faults.stray)) {
        busFree += frameTime;
        inject(to);
    }
}

void Simulation::deliver(Station& to, const Frame& frame, const char* fate)
{
    trace(to, frame, fate);
    to.inbox.emplace(busFree, Arrival{frame});
}

void Simulation::answerInPlaceOf(Station& deaf, const Frame& frame)
{
    if (frame.data[0] >> 4 < deaf.standIn->kinds) {
        Frame answer{deaf.canID, 8, {}};
        answer.data[0] = static_cast<std::uint8_t>(0x30 | random.oneOf(deaf.standIn->codes));
        const Time thinks = random.chance(0.5) ? timeBefore(500 * ms) : 0;
        actions.emplace(busFree + thinks, [this, &deaf, answer] {
            busFree = std::max(busFree, now) + frameTime;
            deliver(other(deaf), answer);
        });
    }
}

/// A frame of a stranger: of any kind and with any id, for no filter stands in front.
void Simulation::inject(Station& to)
{
    const auto kind = random.below(5);
    cells.hit("fault: stray " + (kind == 4 ? "unknown" : std::to_string(kind)));
    const auto high = kind == 4 ? random.between(4, 15) : kind;
    const auto first = static_cast<unsigned int>(high << 4 | random.below(16));
    const auto canID = static_cast<std::uint32_t>(random.below(0x20000000));
    Frame frame = frameOf(first, canID, random);
    const bool shorter = kind == 1 && random.chance(0.3);
    if (shorter) { // a length that no sender announces
        frame.data[0] = 0x10;
        frame.data[1] = static_cast<std::uint8_t>(random.below(8));
    }
    deliver(to, frame);
    if (shorter) {
        deliver(to, frameOf(0x20, frame.canID, random));
    }
}

void Simulation::trace(const Station& to, const Frame& frame, const char* fate)
{
    if (trail != nullptr) {
        const bool right = &to == &sides[1];
        *trail << std::fixed << std::setprecision(6) << std::setw(12)
               << static_cast<double>(busFree) / second << (right ? "  A ──▶ B  " : "  A ◀── B  ")
               << frameWords(frame) << (*fate != 0 ? "  " : "") << fate << '\n';
    }
}
