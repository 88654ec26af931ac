// SPDX-License-Identifier: MIT
#include "dump/Dump.h"

#include "common/Ladder.h"
#include "dump/Colours.h"
#include "dump/DumpLines.h"

#include <algorithm>
#include <utility>

namespace {

constexpr const char* unknownPeer = "???";
/// Frames that were logged by several processors can be out of order by this much.
constexpr std::chrono::milliseconds disorder{1};
constexpr std::size_t mostDirections = 32768;

} // namespace

Dump::Dump(const DumpOptions& dumpOptions, Print printLine, Print complainAtOnce)
    : options(dumpOptions),
      print(std::move(printLine)),
      complain(std::move(complainAtOnce)),
      listing(options.ladder || !options.stats),
      stamps(options.times)
{
}

bool Dump::follows(const LoggedFrame& logged) const
{
    return !options.ids || logged.frame.canID == options.ids->first ||
           logged.frame.canID == options.ids->second;
}

bool Dump::take(const LoggedFrame& logged)
{
    if (!follows(logged)) {
        return false;
    }
    const auto interface = names.numberOf(logged.bus);
    if (!interface) {
        ++ofFurtherInterfaces;
        return false;
    }
    ++taken;
    checkTime(logged.time);
    const SentFrame sent{senderOf(*interface, logged.frame.canID), taken, logged.frame,
                         logged.time};
    if (isoTp.take(sent)) {
        complain("this looks like ISO-TP, another protocol: frame " + std::to_string(taken) +
                 ", of " + names.text(sent.sender));
    }
    if (options.ids) {
        join(senderOf(*interface, options.ids->first), senderOf(*interface, options.ids->second));
    }
    take(sent);
    return true;
}

void Dump::take(const SentFrame& sent)
{
    const bool known = directions.count(sent.sender) != 0;
    if (known || directions.size() >= mostDirections) {
        draw(sent);
        ofFurtherIds += known ? 0 : 1;
        track(sent);
        return;
    }
    const auto pairs = finder.take(sent);
    join(pairs);
    draw(sent);
    track(pairs);
}

void Dump::finish()
{
    const auto pairs = finder.guess();
    join(pairs);
    track(pairs);
    for (const SentFrame& sent : finder.rest()) {
        if (directions.size() < mostDirections) {
            directions.emplace(sent.sender, Direction{});
        }
        track(sent);
    }
    for (auto& [sender, direction] : directions) {
        report(sender, direction, direction.tracker.end(), taken);
    }
    if (options.stats) {
        printTable();
    }
}

void Dump::printTable() const
{
    const auto labelOf = [this](const auto& entry) {
        return names.text(entry.first) + " -> " + peerText(entry.second);
    };
    std::size_t width = 0;
    for (const auto& entry : directions) {
        width = std::max(width, entry.second.statistics.empty() ? 0 : labelOf(entry).size());
    }
    print(MessageStatistics::header(width));
    for (const auto& entry : directions) {
        if (!entry.second.statistics.empty()) {
            print(entry.second.statistics.row(labelOf(entry), width, timed));
        }
    }
}

std::vector<std::string> Dump::remarks() const
{
    std::vector<std::string> lines;
    const auto add = [&](std::size_t count, const char* what) {
        if (count != 0) {
            lines.push_back(what + std::to_string(count));
        }
    };
    add(ofFurtherInterfaces, "too many interfaces; frames left out: ");
    add(ofFurtherIds, "too many ids; frames that are in no message: ");
    add(finder.dropped(), "too many frames without an answer; frames that are in no message: ");
    add(ladder.leftOut(), "too many frames or ids for the picture; frames left out: ");
    add(finder.crowded(), "answers that fit too many ids, so that only the latest count: ");
    if (guessed) {
        lines.emplace_back("a peer with a ? is a guess, which -s and -d settle");
    }
    if (options.stats && !timed) {
        lines.emplace_back("no times: the time stamps run backwards, as those of candump -t d do");
    }
    return lines;
}

std::string Dump::peerText(const Direction& direction) const
{
    return direction.peer ? names.text(*direction.peer) + (direction.guessed ? "?" : "")
                          : unknownPeer;
}

void Dump::join(Sender left, Sender right, bool guess)
{
    directions.emplace(left, Direction{right, true, guess});
    directions.emplace(right, Direction{left, false, guess});
    guessed = guessed || guess;
}

void Dump::join(const std::vector<FoundPair>& pairs)
{
    for (const FoundPair& pair : pairs) {
        join(pair.sender, pair.answerer, pair.guessed);
    }
}

std::string Dump::coloured(const char* colour, const std::string& line) const
{
    return options.colour && *colour != '\0' ? colour + line + noColour : line;
}

void Dump::draw(const SentFrame& sent)
{
    if (listing) {
        print(stamps.next(sent.time) + coloured(colourOf(sent.frame), frameText(sent)));
    }
}

std::string Dump::frameText(const SentFrame& sent) const
{
    const std::string name = names.text(sent.sender);
    if (!options.ladder) {
        return frameLine(name, sent, options.ascii);
    }
    const auto own = directions.find(sent.sender);
    const bool known = own != directions.end();
    const std::string peer = known ? peerText(own->second) : unknownPeer;
    const bool fromLeft = known ? own->second.fromLeft : !isAnswer(sent);
    return ladderLine(sent.frame, fromLeft ? name : peer, fromLeft ? peer : name, fromLeft);
}

void Dump::track(const SentFrame& sent)
{
    const bool answer = isAnswer(sent);
    const auto own = directions.find(sent.sender);
    auto direction = own;
    if (answer && own != directions.end()) {
        const auto& peer = own->second.peer;
        direction = peer ? directions.find(*peer) : directions.end();
    }
    std::string remark;
    if (direction != directions.end()) {
        MessageTracker& tracker = direction->second.tracker;
        report(direction->first, direction->second,
               answer ? tracker.answer(sent) : tracker.data(sent), sent.number);
        remark = tracker.remark();
    }
    if (!options.svg.empty()) {
        const bool known = own != directions.end() && own->second.peer;
        ladder.add(sent, names.text(sent.sender), known ? names.text(*own->second.peer) : "",
                   remark);
    }
}

void Dump::track(const std::vector<FoundPair>& pairs)
{
    for (const FoundPair& pair : pairs) {
        for (const SentFrame& sent : pair.frames) {
            track(sent);
        }
    }
}

void Dump::report(Sender sender, Direction& direction, const std::optional<TrackedMessage>& message,
                  std::uint64_t last)
{
    if (message) {
        if (options.stats) {
            direction.statistics.add(*message);
        }
        if (!options.svg.empty()) {
            ladder.end(names.text(sender), message->outcome, last);
        }
        if (listing) {
            print(stamps.indent() + coloured(colourOf(message->outcome),
                                             messageLine(names.text(sender), peerText(direction),
                                                         *message, options.ascii)));
        }
    }
}

void Dump::checkTime(const LogTime& time)
{
    timed = timed && !(time && lastTime && *time + disorder < *lastTime);
    lastTime = time;
}
