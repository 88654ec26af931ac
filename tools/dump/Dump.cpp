#include "dump/Dump.h"

#include "common/CANId.h"
#include "common/Ladder.h"
#include "dump/DumpLines.h"

#include <utility>

namespace {

constexpr const char* unknownPeer = "???";
/// Frames that were logged by several processors can be out of order by this much.
constexpr std::chrono::milliseconds disorder{1};

} // namespace

Dump::Dump(const DumpOptions& dumpOptions, Print printLine)
    : options(dumpOptions),
      print(std::move(printLine)),
      listing(options.ladder || !options.stats)
{
}

bool Dump::follows(const LoggedFrame& logged) const
{
    return !options.ids || logged.frame.canID == options.ids->first ||
           logged.frame.canID == options.ids->second;
}

void Dump::take(LoggedFrame logged)
{
    if (!follows(logged)) {
        return;
    }
    firstBus = taken++ == 0 ? logged.bus : firstBus;
    const std::string prefix = logged.bus == firstBus ? "" : logged.bus + ':';
    logged.sender = prefix + logged.sender;
    checkTime(logged.time);
    if (options.ids && directions.count(logged.sender) == 0) {
        join(prefix + canIdText(options.ids->first), prefix + canIdText(options.ids->second));
    }
    if (directions.count(logged.sender) != 0) {
        draw(logged);
        track(logged);
        return;
    }
    const auto pairs = finders[logged.bus].take(logged);
    join(pairs);
    draw(logged);
    track(pairs);
}

void Dump::finish()
{
    for (auto& [bus, finder] : finders) {
        const auto pairs = finder.guess();
        join(pairs);
        track(pairs);
        for (const LoggedFrame& logged : finder.rest()) {
            directions.emplace(logged.sender, Direction{unknownPeer, true, {}, {}});
            track(logged);
        }
    }
    for (auto& [sender, direction] : directions) {
        report(sender, direction, direction.tracker.end());
    }
    if (!options.stats) {
        return;
    }
    print(MessageStatistics::header());
    for (const auto& [sender, direction] : directions) {
        if (!direction.statistics.empty()) {
            print(direction.statistics.row(sender + " -> " + direction.peer, timed));
        }
    }
}

void Dump::join(const std::string& left, const std::string& right)
{
    directions.emplace(left, Direction{right, true, {}, {}});
    directions.emplace(right, Direction{left, false, {}, {}});
}

void Dump::join(const std::vector<FoundPair>& pairs)
{
    for (const FoundPair& pair : pairs) {
        join(pair.sender, pair.answerer);
    }
}

void Dump::draw(const LoggedFrame& logged) const
{
    if (!listing) {
        return;
    }
    if (!options.ladder) {
        print(frameLine(logged));
        return;
    }
    const auto own = directions.find(logged.sender);
    const bool known = own != directions.end();
    const std::string peer = known ? own->second.peer : unknownPeer;
    const bool fromLeft = known ? own->second.fromLeft : !isAnswer(logged);
    print(ladderLine(logged.frame, fromLeft ? logged.sender : peer, fromLeft ? peer : logged.sender,
                     fromLeft));
}

void Dump::track(const LoggedFrame& logged)
{
    const bool answer = isAnswer(logged);
    const auto direction =
        directions.find(answer ? directions.at(logged.sender).peer : logged.sender);
    if (direction != directions.end()) {
        MessageTracker& tracker = direction->second.tracker;
        report(direction->first, direction->second,
               answer ? tracker.answer(logged) : tracker.data(logged));
    }
}

void Dump::track(const std::vector<FoundPair>& pairs)
{
    for (const FoundPair& pair : pairs) {
        for (const LoggedFrame& logged : pair.frames) {
            track(logged);
        }
    }
}

void Dump::report(const std::string& sender, Direction& direction,
                  const std::optional<TrackedMessage>& message)
{
    if (message) {
        if (options.stats) {
            direction.statistics.add(*message);
        }
        if (listing) {
            print(messageLine(sender, direction.peer, *message));
        }
    }
}

void Dump::checkTime(const LogTime& time)
{
    timed = timed && !(time && lastTime && *time + disorder < *lastTime);
    lastTime = time;
}
