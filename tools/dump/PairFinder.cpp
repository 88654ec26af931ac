// SPDX-License-Identifier: MIT
#include "dump/PairFinder.h"

#include <algorithm>
#include <iterator>

using namespace CANTransportFrame;

namespace {

constexpr std::size_t mostFramesKept = 65536;
/// An answer comes soon, so these are the ids that have sent last.
constexpr std::size_t mostCandidates = 32;
constexpr int mostLookedAt = 256; ///< To find them.

/// In the answer of an endpoint, only zeros follow the code; other traffic seldom looks like this.
bool looksLikeAnAnswer(const SentFrame& sent)
{
    const auto& data = sent.frame.data;
    return isAnswer(sent) && codeOf(data) <= CTP_FC_ACKNOWLEDGE &&
           std::all_of(data + 1, std::end(data), [](std::uint8_t byte) { return byte == 0; });
}

bool isEarlier(const SentFrame& left, const SentFrame& right) { return left.number < right.number; }

} // namespace

std::vector<FoundPair> PairFinder::take(const SentFrame& sent)
{
    if (framesKept == mostFramesKept) { // and none of them has been answered
        drop();
    }
    ++framesKept;
    Station& station = stations[sent.sender];
    station.frames.push_back(sent);
    std::vector<FoundPair> found;
    if (looksLikeAnAnswer(sent)) {
        answer(sent.sender, codeOf(sent.frame.data));
        station.answeredAt = sent.number;
        settle({sent.sender}, found);
    } else if (kindOf(sent.frame.data) < CTP_FLOW_CONTROL) {
        send(station, sent.frame);
        latest.erase(station.sentAt);
        station.sentAt = sent.number;
        latest.emplace(sent.number, sent.sender);
    }
    return found;
}

void PairFinder::send(Station& station, const CANTransportThread::TPCANMsg& frame)
{
    const framekind_t kind = kindOf(frame.data);
    if (kind == CTP_SINGLE_FRAME) {
        station.stage = Stage::whole;
    } else if (kind == CTP_FIRST_FRAME) {
        station.stage = Stage::firstFrame;
        station.missing =
            std::max(announcedLengthOf(frame.data), firstFrameBytes) - firstFrameBytes;
    } else if (station.stage == Stage::firstFrame || station.stage == Stage::burst) {
        station.missing -= std::min<std::size_t>(station.missing, consecutiveFrameBytes);
        station.stage = station.missing == 0 ? Stage::whole : Stage::burst;
    } else {
        station.stage = Stage::unknown; // the log starts in the middle of a message
    }
}

bool PairFinder::fits(Stage stage, flowcontrol_t code)
{
    switch (code) {
    case CTP_FC_READY_TO_RECEIVE:
        return stage == Stage::firstFrame;
    case CTP_FC_ACKNOWLEDGE:
        return stage == Stage::whole || stage == Stage::unknown;
    case CTP_FC_NOT_READY_TO_RECEIVE:
    case CTP_FC_NOT_ACKNOWLEDGE:
        break;
    }
    return true;
}

/// @param more set if others might fit as well.
PairFinder::Senders PairFinder::fitting(Sender name, flowcontrol_t code, bool& more) const
{
    // A receiver also sends code 2 at a timeout, without a frame before it.
    const std::uint64_t since = code == CTP_FC_NOT_ACKNOWLEDGE ? 0 : stations.at(name).answeredAt;
    Senders found;
    int looks = 0;
    for (auto other = latest.rbegin(); other != latest.rend() && other->first > since; ++other) {
        if (found.size() == mostCandidates || looks++ == mostLookedAt) {
            more = true;
            break;
        }
        const Sender sender = other->second;
        if (interfaceOf(sender) == interfaceOf(name) && sender != name &&
            fits(stations.at(sender).stage, code)) {
            found.push_back(sender);
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

void PairFinder::answer(Sender name, flowcontrol_t code)
{
    Station& answerer = stations.at(name);
    bool more = false;
    Senders fit = fitting(name, code, more);
    if (fit.empty()) {
        return;
    }
    answersCrowded += more ? 1 : 0;
    Senders both;
    std::set_intersection(fit.begin(), fit.end(), answerer.candidates.begin(),
                          answerer.candidates.end(), std::back_inserter(both));
    if (!both.empty() && (more || !answerer.guessed)) {
        answerer.candidates = both;
        return;
    }
    for (const Sender candidate : fit) {
        stations.at(candidate).suspectOf.push_back(name);
    }
    answerer.candidates = std::move(fit);
    answerer.guessed = more;
}

/// Pairs each of the open answerers that has one candidate left. After that, another may have only one left.
void PairFinder::settle(std::vector<Sender> open, std::vector<FoundPair>& found)
{
    while (!open.empty()) {
        const auto station = stations.find(open.back());
        open.pop_back();
        if (station != stations.end() && station->second.candidates.size() == 1) {
            found.push_back(release(station->second.candidates.front(), station->first, open));
        }
    }
}

/// @param changed gets the ids that have one candidate less.
FoundPair PairFinder::release(Sender sender, Sender answerer, std::vector<Sender>& changed)
{
    FoundPair pair{sender, answerer, stations.at(answerer).guessed, {}};
    for (const Sender name : {sender, answerer}) {
        const Station station = std::move(stations.at(name));
        stations.erase(name);
        latest.erase(station.sentAt);
        framesKept -= station.frames.size();
        pair.frames.insert(pair.frames.end(), station.frames.begin(), station.frames.end());
        for (const Sender other : station.suspectOf) {
            const auto suspecting = stations.find(other);
            if (suspecting == stations.end()) {
                continue;
            }
            Senders& candidates = suspecting->second.candidates;
            const auto gone = std::lower_bound(candidates.begin(), candidates.end(), name);
            if (gone != candidates.end() && *gone == name) {
                candidates.erase(gone);
                changed.push_back(other);
            }
        }
    }
    std::sort(pair.frames.begin(), pair.frames.end(), isEarlier);
    return pair;
}

std::vector<FoundPair> PairFinder::guess()
{
    const auto firstFrameOf = [this](Sender name) {
        return stations.at(name).frames.front().number;
    };
    std::vector<std::pair<std::uint64_t, Sender>> open;
    for (const auto& [name, station] : stations) {
        const auto& frames = station.frames;
        const auto first = std::find_if(frames.begin(), frames.end(), isAnswer);
        if (first != frames.end()) {
            open.emplace_back(first->number, name);
        }
    }
    std::sort(open.begin(), open.end());
    std::vector<FoundPair> found;
    for (const auto& [number, name] : open) {
        const auto station = stations.find(name);
        if (station == stations.end() || station->second.candidates.empty()) {
            continue;
        }
        const Senders& candidates = station->second.candidates;
        const Sender first =
            *std::min_element(candidates.begin(), candidates.end(), [&](Sender left, Sender right) {
                return firstFrameOf(left) < firstFrameOf(right);
            });
        std::vector<Sender> changed;
        found.push_back(release(first, name, changed));
        settle(changed, found);
    }
    for (FoundPair& pair : found) {
        pair.guessed = true;
    }
    return found;
}

std::vector<SentFrame> PairFinder::rest() const
{
    std::vector<SentFrame> left;
    for (const auto& [name, station] : stations) {
        left.insert(left.end(), station.frames.begin(), station.frames.end());
    }
    std::sort(left.begin(), left.end(), isEarlier);
    return left;
}

void PairFinder::drop()
{
    framesDropped += framesKept;
    framesKept = 0;
    stations.clear();
    latest.clear();
}
