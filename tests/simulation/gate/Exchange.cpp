// SPDX-License-Identifier: MIT
#include "simulation/gate/Exchange.h"

#include <algorithm>
#include <string>

namespace {

/// What has no outcome by then counts as given up.
constexpr Time longestRun = 300 * second;

/// @return frames between the gate and the bus, drawn; 0 without a gate.
std::size_t drawReach(Random& random, std::size_t side, int gates)
{
    const std::size_t reach = random.between(8, 16);
    return static_cast<int>(side) < gates ? reach : 0;
}

} // namespace

Exchange::Exchange(std::uint64_t seed, const Conditions& itsConditions, int gates,
                   Cells& cellCounts)
    : random(seed),
      cells(cellCounts),
      conditions(itsConditions),
      byTurns(random.chance(0.5)),
      sides{{0x123, drawReach(random, 0, gates), drawMessages(), cells},
            {0x456, drawReach(random, 1, gates), drawMessages(), cells}}
{
}

std::vector<Bytes> Exchange::drawMessages()
{
    std::vector<Bytes> messages;
    for (std::size_t i = 0; i < messagesEachWay; ++i) {
        messages.push_back(pattern(random.between(conditions.shortest, conditions.longest)));
        messages.back()[0] = static_cast<unsigned char>(i); // tells them apart
    }
    return messages;
}

void Exchange::run()
{
    // A client that is done may still be receiving.
    for (Time next = 0; next < longestRun; next = std::min({sides[0].next(now), sides[1].next(now),
                                                            onBus ? busFree : Client::never})) {
        now = next;
        if (onBus && now >= busFree) {
            arrive();
        }
        sides[0].pass(now);
        sides[1].pass(now);
        if (!onBus) {
            arbitrate();
        }
        doneAt = sides[0].done() && sides[1].done() ? doneAt : now;
    }
}

void Exchange::arbitrate()
{
    const bool waits[] = {!sides[0].toBus.empty(), !sides[1].toBus.empty()};
    const bool idle = !waits[0] && !waits[1];
    if (!made.empty() && (made.front().delay == 0 || idle)) {
        onBus = made.front();
        made.pop_front();
    } else if (!idle) {
        for (Transmission& later : made) {
            later.delay = 0;
        }
        const std::size_t first = byTurns ? 1 - turn : 0;
        turn = waits[first] ? first : 1 - first;
        onBus = Transmission{1 - turn, sides[turn].toBus.front()};
        sides[turn].toBus.pop_front();
    }
    if (onBus) {
        busFree = now + conditions.frameTime;
        ++frames;
    }
}

void Exchange::arrive()
{
    const Transmission sent = *onBus;
    onBus.reset();
    if (sent.made) {
        sides[sent.to].hear(sent.frame, now);
        return;
    }
    if (random.chance(conditions.lost)) {
        cells.hit("fault: lost");
    } else {
        sides[sent.to].hear(sent.frame, now);
    }
    if (random.chance(conditions.doubled)) {
        const int delay = random.chance(0.5) ? 1 : 0;
        cells.hit(delay == 0 ? "fault: doubled" : "fault: doubled a frame later");
        made.push_back({sent.to, sent.frame, true, delay});
    }
    if (random.chance(conditions.strays)) {
        made.push_back({sent.to, stray(1 - sent.to), true});
    }
}

Frame Exchange::stray(std::size_t from)
{
    const bool answer = random.chance(0.5);
    const auto low = random.below(answer ? 5 : 16);
    cells.hit(answer ? "fault: stray code " + std::to_string(low) : "fault: stray consecutive");
    Frame frame{sides[from].id, 8, {}};
    frame.data[0] = static_cast<std::uint8_t>((answer ? 0x30 : 0x20) | low);
    return frame;
}

void Exchange::addTo(Tally& tally)
{
    for (const std::size_t side : {0U, 1U}) {
        const Client& sender = sides[side];
        const auto& arrived = sides[1 - side].arrived;
        for (std::size_t i = 0; i < messagesEachWay; ++i) {
            const auto times = std::count(arrived.begin(), arrived.end(), sender.messages[i]);
            ++tally.messages;
            const bool acknowledged = i < sender.outcomes.size() && sender.outcomes[i];
            ++(!acknowledged ? tally.givenUp : times > 0 ? tally.acknowledged : tally.falseOnes);
            const std::size_t count = cut(sender.messages[i]).size();
            tally.framesNeeded += count + (count > 1 ? 2 : 1);
            tally.twice += times > 1 ? 1U : 0U;
        }
        const CANTransportGate::Counters dropped = sender.gate.counters();
        cells.hit("dropped: refusal", dropped.refusals);
        cells.hit("dropped: ready", dropped.readies);
        cells.hit("dropped: acknowledgement", dropped.acknowledgements);
        cells.hit("dropped: unknown answer", dropped.unknownAnswers);
        cells.hit("dropped: own refusal", dropped.ownRefusals);
        cells.hit("dropped: own frame", dropped.ownFrames);
    }
    tally.frames += frames;
    tally.time += doneAt;
}
