#include "dump/PairFinder.h"

#include "velk/CANTransportFrame.h"

#include <algorithm>
#include <iterator>

using namespace CANTransportFrame;

namespace {

constexpr std::size_t mostFramesKept = 65536;

/// In the answer of an endpoint, only zeros follow the code; other traffic seldom looks like this.
bool looksLikeAnAnswer(const LoggedFrame& logged)
{
    const auto& data = logged.frame.data;
    return isAnswer(logged) && codeOf(data) <= CTP_FC_ACKNOWLEDGE &&
           std::all_of(data + 1, std::end(data), [](std::uint8_t byte) { return byte == 0; });
}

} // namespace

std::vector<FoundPair> PairFinder::take(const LoggedFrame& logged)
{
    if (frames.size() == mostFramesKept) { // and none of them has been answered
        frames.clear();
        stations.clear();
    }
    ++number;
    frames.push_back(logged);
    Station& station = stations[logged.sender];
    std::vector<FoundPair> found;
    if (looksLikeAnAnswer(logged)) {
        answer(logged.sender, codeOf(logged.frame.data));
        settle(found);
    } else if (kindOf(logged.frame.data) < CTP_FLOW_CONTROL) {
        send(station, logged.frame);
        station.sentAt = number;
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

bool PairFinder::fits(const Station& sender, const Station& answerer, flowcontrol_t code)
{
    const bool unanswered = sender.sentAt > answerer.answeredAt;
    switch (code) {
    case CTP_FC_READY_TO_RECEIVE:
        return sender.stage == Stage::firstFrame && unanswered;
    case CTP_FC_ACKNOWLEDGE:
        return (sender.stage == Stage::whole || sender.stage == Stage::unknown) && unanswered;
    case CTP_FC_NOT_ACKNOWLEDGE: // a receiver also sends it at a timeout, without a frame before it
        return sender.stage != Stage::silent;
    case CTP_FC_NOT_READY_TO_RECEIVE:
        break;
    }
    return sender.stage != Stage::silent && unanswered;
}

void PairFinder::answer(const std::string& name, flowcontrol_t code)
{
    Station& answerer = stations.at(name);
    Names fitting;
    for (const auto& [other, station] : stations) {
        if (other != name && fits(station, answerer, code)) {
            fitting.insert(other);
        }
    }
    answerer.answeredAt = number;
    Names both;
    std::set_intersection(fitting.begin(), fitting.end(), answerer.candidates.begin(),
                          answerer.candidates.end(), std::inserter(both, both.end()));
    if (!fitting.empty()) {
        answerer.candidates = both.empty() ? fitting : both;
    }
}

/// Pairs each station that has one candidate left. After that, another station may have only one left.
void PairFinder::settle(std::vector<FoundPair>& found)
{
    const auto certain = [](const auto& entry) { return entry.second.candidates.size() == 1; };
    for (auto station = std::find_if(stations.begin(), stations.end(), certain);
         station != stations.end();
         station = std::find_if(stations.begin(), stations.end(), certain)) {
        found.push_back(release(*station->second.candidates.begin(), station->first));
    }
}

FoundPair PairFinder::release(const std::string& sender, const std::string& answerer)
{
    FoundPair pair{sender, answerer, {}};
    const auto isOther = [&pair](const LoggedFrame& logged) {
        return logged.sender != pair.sender && logged.sender != pair.answerer;
    };
    const auto own = std::stable_partition(frames.begin(), frames.end(), isOther);
    pair.frames.assign(own, frames.end());
    frames.erase(own, frames.end());
    for (const std::string& name : {pair.sender, pair.answerer}) {
        stations.erase(name);
        for (auto& [other, station] : stations) {
            station.candidates.erase(name);
        }
    }
    return pair;
}

std::vector<FoundPair> PairFinder::guess()
{
    std::vector<FoundPair> found;
    const auto isOpen = [this](const LoggedFrame& logged) {
        return isAnswer(logged) && !stations.at(logged.sender).candidates.empty();
    };
    for (auto open = std::find_if(frames.begin(), frames.end(), isOpen); open != frames.end();
         open = std::find_if(frames.begin(), frames.end(), isOpen)) {
        const Names& candidates = stations.at(open->sender).candidates;
        const auto first = std::find_if(frames.begin(), frames.end(), [&](const auto& logged) {
            return candidates.count(logged.sender) != 0;
        });
        found.push_back(release(first->sender, open->sender));
        settle(found);
    }
    return found;
}
