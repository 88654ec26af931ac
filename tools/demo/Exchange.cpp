#include "demo/Exchange.h"

#include "demo/Ladder.h"
#include "demo/Summary.h"

#include <algorithm>
#include <numeric>
#include <sstream>

namespace {

using Fate = VirtualBus::Fate;
using Clock = Direction::Clock;

constexpr int pollIntervalMs = 20;
constexpr std::chrono::seconds patience{300};
constexpr std::uint32_t firstId = 0x100;

enum WaitIndex : std::size_t { interruptionIndex, wakeUpIndex, firstSideIndex };

constexpr std::uint32_t idOfSide(std::size_t side)
{
    return firstId + static_cast<std::uint32_t>(side);
}

std::string nameOfSide(std::size_t side, std::size_t pairs)
{
    const std::string letter = side % 2 == 0 ? "A" : "B";
    return pairs == 1 ? letter : letter + std::to_string(side / 2 + 1);
}

bool startsAMessage(const CANFrame& frame, Fate fate)
{
    const int kind = frame.data[0] >> 4;
    return (fate == Fate::carried || fate == Fate::dropped) &&
           (kind == CANTransportThread::CTP_SINGLE_FRAME ||
            kind == CANTransportThread::CTP_FIRST_FRAME);
}

void add(Direction::Counters& sum, const Direction::Counters& one)
{
    sum.messages += one.messages;
    sum.requests += one.requests;
    sum.givenUp += one.givenUp;
    sum.falseAcknowledgements += one.falseAcknowledgements;
}

} // namespace

Exchange::Exchange(const DemoOptions& demoOptions, const std::vector<unsigned char>& fileBytes,
                   Console& demoConsole)
    : options(demoOptions),
      console(demoConsole),
      file(fileBytes),
      bus({options.bitrate, VirtualBus::Options().queueLength, options.faults,
           [this](const CANFrame& frame, Fate fate) { observe(frame, fate); }}),
      sides(2 * options.pairs)
{
    for (std::size_t side = 0; side < sides.size(); ++side) {
        sides[side].endpoint =
            std::make_unique<DemoEndpoint>(bus, wake, nameOfSide(side, options.pairs),
                                           idOfSide(side), idOfSide(side ^ 1U), options.debugLevel);
    }
    for (std::size_t side = 0; side < sides.size(); ++side) {
        addDirection(side, side ^ 1U);
    }
}

void Exchange::addDirection(std::size_t from, std::size_t to)
{
    const Direction::Setup setup{options.size, options.faults.seed + from};
    sides[from].outgoing =
        std::make_unique<Direction>(file, *sides[from].endpoint, *sides[to].endpoint, setup);
    sides[to].incoming = sides[from].outgoing.get();
}

void Exchange::observe(const CANFrame& frame, Fate fate)
{
    if (startsAMessage(frame, fate)) {
        ++starts;
    }
    if (options.ladder) {
        const std::size_t side = frame.canID - firstId;
        const std::lock_guard<std::mutex> lock(ladderMutex);
        ladder.push_back(
            ladderLine(frame, fate, side % 2 == 0, options.pairs == 1 ? 0 : side / 2 + 1));
    }
}

ExchangeResult Exchange::run(const WakeUp& interruption)
{
    const auto begin = Clock::now();
    lastArrival = begin;
    waits.assign(firstSideIndex + sides.size(), {-1, POLLIN, 0});
    waits[interruptionIndex].fd = interruption.descriptor();
    waits[wakeUpIndex].fd = wake.descriptor();
    bus.start();
    for (std::size_t i = 0; i < sides.size(); ++i) {
        waits[firstSideIndex + i].fd = sides[i].endpoint->receiveDescriptor();
        sides[i].endpoint->start();
    }
    while (turn()) {
        waitForEvents();
    }
    const auto time = Clock::now() - begin;
    for (const Side& side : sides) {
        side.endpoint->stop();
    }
    bus.stop();
    printLadder();
    return result(time);
}

/// Status changes come before arrivals: a message is in the pipe before its acknowledgement is on
/// the bus, so that one which is missing here is missing indeed.
bool Exchange::turn()
{
    printLadder();
    for (Side& side : sides) {
        takeStatusChanges(side);
    }
    takeArrivals();
    const auto counters = bus.counters();
    const auto now = Clock::now();
    bool done = true;
    for (const Side& side : sides) {
        side.outgoing->advance(now, counters.nodes[side.endpoint->node()]);
        done = done && side.outgoing->done();
        failure = failure.empty() ? side.outgoing->failure() : failure;
    }
    checkStandstill(now);
    console.progress(nibblesArrived(), file.size() * sides.size());
    if (console.failed() && failure.empty()) {
        failure = "cannot write to standard output";
    }
    return !done && failure.empty() && !interrupted;
}

void Exchange::waitForEvents()
{
    poll(waits.data(), waits.size(), pollIntervalMs);
    if (waits[wakeUpIndex].revents != 0) {
        wake.clear();
    }
    interrupted = interrupted || waits[interruptionIndex].revents != 0;
}

void Exchange::takeArrivals()
{
    for (std::size_t i = 0; i < sides.size(); ++i) {
        if (waits[firstSideIndex + i].revents != 0) {
            for (const auto& message : sides[i].endpoint->receive()) {
                sides[i].incoming->arrived(message);
            }
        }
    }
}

void Exchange::takeStatusChanges(Side& side)
{
    for (const DemoEndpoint::Status status : side.endpoint->takeStatusChanges()) {
        ++statusChanges[status];
        if (status == CANTransportThread::CTT_ACKNOWLEDGED) {
            side.outgoing->acknowledged();
        } else {
            std::ostringstream text;
            text << side.endpoint->name() << ": " << status;
            console.line(text.str());
        }
    }
}

/// Not on the bus thread: a terminal that stalls must not stop the bus.
void Exchange::printLadder()
{
    std::vector<std::string> lines;
    {
        const std::lock_guard<std::mutex> lock(ladderMutex);
        lines.swap(ladder);
    }
    for (const std::string& line : lines) {
        console.line(line);
    }
}

/// A peer that always takes a first frame and never the message keeps it in retries without end,
/// as it happens on a bus that is too slow.
void Exchange::checkStandstill(Clock::time_point now)
{
    const std::size_t nibbles = nibblesArrived();
    if (nibbles != lastNibbles) {
        lastNibbles = nibbles;
        lastArrival = now;
    } else if (now - lastArrival > patience && failure.empty()) {
        failure = "nothing has come over for " + std::to_string(patience.count()) +
                  " seconds; shorter messages (--size) may get through";
    }
}

std::size_t Exchange::nibblesArrived() const
{
    return std::accumulate(sides.begin(), sides.end(), std::size_t{0},
                           [](std::size_t sum, const Side& side) {
                               return sum + side.outgoing->receipt().position();
                           });
}

ExchangeResult Exchange::result(std::chrono::duration<double> time) const
{
    ExchangeResult all;
    all.failure = failure;
    all.time = time;
    all.bytes = nibblesArrived() / 2;
    all.starts = starts;
    all.bus = bus.counters();
    all.statusChanges = statusChanges;
    for (const Side& side : sides) {
        add(all.directions, side.outgoing->counters());
        all.repeats += side.outgoing->receipt().repeats();
    }
    // A disturbed bus can end a message with the acknowledgement of another, a sound one cannot.
    const auto& frames = all.bus;
    const bool sound =
        frames.faultDrops + frames.duplicates + frames.strays + frames.overflowDrops == 0 &&
        all.retries() == 0;
    if (all.failure.empty() && sound && all.directions.falseAcknowledgements > 0) {
        all.failure = std::to_string(all.directions.falseAcknowledgements) +
                      " messages were acknowledged and had not arrived, on a bus without faults";
    }
    all.whole =
        all.failure.empty() && !interrupted && nibblesArrived() == file.size() * sides.size();
    return all;
}
