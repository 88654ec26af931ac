#include "dump/PairFinder.h"

#include "dump/FrameFields.h"

#include <algorithm>
#include <iterator>

namespace {

using Transport = CANTransportThread;

constexpr std::size_t mostFramesKept = 65536;

/// Endpoints answer with zeros behind the code; what else is sent on a bus seldom looks so.
bool looksLikeAnAnswer(const Transport::TPCANMsg& frame)
{
    return isAnswer(frame) && lowNibble(frame) <= Transport::CTP_FC_ACKNOWLEDGE &&
           std::all_of(frame.data + 1, frame.data + sizeof frame.data,
                       [](std::uint8_t byte) { return byte == 0; });
}

} // namespace

std::vector<FoundPair> PairFinder::take(const LoggedFrame& logged)
{
    if (frames.size() == mostFramesKept) { // of which nobody answered any
        frames.clear();
        stations.clear();
    }
    ++number;
    frames.push_back(logged);
    Station& station = stations[logged.sender];
    std::vector<FoundPair> found;
    if (looksLikeAnAnswer(logged.frame)) {
        answer(logged.sender, lowNibble(logged.frame));
        settle(found);
    } else if (kindOf(logged.frame) < Transport::CTP_FLOW_CONTROL) {
        send(station, logged.frame);
        station.sentAt = number;
    }
    return found;
}

void PairFinder::send(Station& station, const Transport::TPCANMsg& frame)
{
    if (kindOf(frame) == Transport::CTP_SINGLE_FRAME) {
        station.stage = Stage::whole;
    } else if (kindOf(frame) == Transport::CTP_FIRST_FRAME) {
        station.stage = Stage::firstFrame;
        station.missing =
            std::max(lengthInFirstFrame(frame), bytesInFirstFrame) - bytesInFirstFrame;
    } else if (station.stage == Stage::firstFrame || station.stage == Stage::burst) {
        station.missing -= std::min(station.missing, bytesInFrame);
        station.stage = station.missing == 0 ? Stage::whole : Stage::burst;
    } else {
        station.stage = Stage::unknown; // The log begins in the midst of a message.
    }
}

bool PairFinder::fits(const Station& sender, const Station& answerer, unsigned int code) const
{
    switch (code) {
    case Transport::CTP_FC_READY_TO_RECEIVE:
        return sender.stage == Stage::firstFrame && sender.sentAt > answerer.answeredAt;
    case Transport::CTP_FC_ACKNOWLEDGE:
        return (sender.stage == Stage::whole || sender.stage == Stage::unknown) &&
               sender.sentAt > answerer.answeredAt;
    case Transport::CTP_FC_NOT_ACKNOWLEDGE: // It comes on its own too, from who waits in vain.
        return sender.stage != Stage::silent;
    default:
        return sender.stage != Stage::silent && sender.sentAt > answerer.answeredAt;
    }
}

void PairFinder::answer(const std::string& name, unsigned int code)
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

/// Pairs whoever has one candidate, which may leave but one to another.
void PairFinder::settle(std::vector<FoundPair>& found)
{
    const auto clear = [](const auto& entry) { return entry.second.candidates.size() == 1; };
    for (auto station = std::find_if(stations.begin(), stations.end(), clear);
         station != stations.end();
         station = std::find_if(stations.begin(), stations.end(), clear)) {
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
        return isAnswer(logged.frame) && !stations.at(logged.sender).candidates.empty();
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
