// SPDX-License-Identifier: MIT
#include "demo/Exchange.h"

#include "velk/CANTransportFrame.h"

#include "common/Tool.h"
#include "demo/BusLadder.h"
#include "demo/Summary.h"

#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <system_error>

#include <poll.h>

namespace {

using Fate = VirtualBus::Fate;
using Clock = std::chrono::steady_clock;

constexpr int lookIntervalMs = 20;
constexpr std::chrono::seconds patience{300};
constexpr std::uint16_t firstId = 0x100;

std::uint16_t idOf(std::size_t side) { return static_cast<std::uint16_t>(firstId + side); }

bool startsAttempt(const CANFrame& frame, Fate fate)
{
    return (fate == Fate::carried || fate == Fate::dropped) &&
           CANTransportFrame::startsMessage(frame.data);
}

} // namespace

Exchange::Folder::Folder()
{
    std::string name = (std::filesystem::temp_directory_path() / "velkcan-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "no temporary folder");
    }
    path = name;
}

Exchange::Folder::~Folder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

Exchange::Exchange(const DemoOptions& demoOptions, const std::vector<unsigned char>& fileBytes)
    : options(demoOptions),
      file(fileBytes),
      bus((folder.path / "bus").string(),
          {0600, options.bitrate, VirtualBus::Options().queueLength, options.faults,
           [this](const CANFrame& frame, Fate fate) { observe(frame, fate); }, 2 * options.pairs})
{
    for (std::size_t side = 0; side < 2 * options.pairs; ++side) {
        clients.push_back(makeClient(side));
    }
}

std::unique_ptr<CANTransportClient> Exchange::makeClient(std::size_t side)
{
    CANTransportClient::Options client;
    client.sendId = idOf(side);
    client.receiveId = idOf(side ^ 1U);
    client.debugLevel = options.debugLevel;
    if (options.debugLevel > 0) {
        client.log = Tool::logToStderr();
    }
    client.statusHandler = [this, side](CANTransportClient::Status status, unsigned short) {
        note(side, status);
    };
    return std::make_unique<CANTransportClient>("unix:" + (folder.path / "bus").string(), client);
}

std::string Exchange::nameOf(std::size_t side) const
{
    const std::string letter = side % 2 == 0 ? "A" : "B";
    return options.pairs == 1 ? letter : letter + std::to_string(side / 2 + 1);
}

/// The lines are printed later: a stalled terminal must stop neither the bus nor an endpoint.
void Exchange::observe(const CANFrame& frame, Fate fate)
{
    if (startsAttempt(frame, fate)) {
        ++starts;
    }
    if (options.ladder) {
        const std::size_t side = frame.canID - firstId;
        const std::lock_guard<std::mutex> lock(mutex);
        news.push_back(
            busLadderLine(frame, fate, side % 2 == 0, options.pairs == 1 ? 0 : side / 2 + 1));
    }
}

void Exchange::note(std::size_t side, CANTransportClient::Status status)
{
    std::ostringstream text;
    text << nameOf(side) << ": " << status;
    const std::lock_guard<std::mutex> lock(mutex);
    ++statusChanges[status];
    if (status != CANTransportThread::CTT_ACKNOWLEDGED) {
        news.push_back(text.str());
    }
}

ExchangeResult Exchange::run(const Signals& signals)
{
    const auto start = Clock::now();
    lastArrival = start;
    for (std::size_t side = 0; side < clients.size(); ++side) {
        const std::size_t peer = side ^ 1U;
        directions.push_back(std::make_unique<Direction>(
            file, *clients[side], *clients[peer],
            Direction::Setup{options.size, options.faults.seed + side, nameOf(peer)}));
    }
    ExchangeResult result;
    for (bool more = true; more;) {
        pollfd arrival{signals.descriptor(), POLLIN, 0};
        result.signal = poll(&arrival, 1, lookIntervalMs) == 1 ? signals.next() : 0;
        printNews();
        result.directions = sum();
        result.failure = result.directions.failure;
        if (!options.ladder) {
            bar.show(result.directions.nibbles, file.size() * clients.size());
        }
        if (isStalled(result.directions.nibbles)) {
            result.failure = "nothing has arrived for " + std::to_string(patience.count()) +
                             " seconds; shorter messages (--size) may help";
        }
        more = !result.directions.done && result.failure.empty() && result.signal == 0;
    }
    result.time = Clock::now() - start;
    directions.clear();
    clients.clear();
    bus.stop();
    printNews();
    bar.erase();
    judge(result);
    return result;
}

void Exchange::printNews()
{
    std::vector<std::string> lines;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        lines.swap(news);
    }
    if (!lines.empty()) {
        bar.erase();
    }
    for (const std::string& line : lines) {
        Tool::printLine(line);
    }
}

/// On a bus that is too slow, the peer answers each first frame but never acknowledges the message, so the
/// sender tries again without end.
bool Exchange::isStalled(std::size_t nibbles)
{
    if (nibbles != lastNibbles) {
        lastNibbles = nibbles;
        lastArrival = Clock::now();
    }
    return Clock::now() - lastArrival > patience;
}

Direction::Counters Exchange::sum() const
{
    Direction::Counters all;
    all.done = true;
    for (const auto& direction : directions) {
        const Direction::Counters one = direction->counters();
        all.messages += one.messages;
        all.requests += one.requests;
        all.givenUp += one.givenUp;
        all.falseAcknowledgements += one.falseAcknowledgements;
        all.repeats += one.repeats;
        all.nibbles += one.nibbles;
        all.done = all.done && one.done;
        all.failure = all.failure.empty() ? one.failure : all.failure;
    }
    return all;
}

void Exchange::judge(ExchangeResult& result) const
{
    result.starts = starts;
    result.bus = bus.counters();
    result.statusChanges = statusChanges;
    // Only on a disturbed bus can the acknowledgement of one message end another.
    const auto& frames = result.bus;
    const bool sound =
        frames.faultDrops + frames.duplicates + frames.strays + frames.overflowDrops == 0 &&
        result.retries() == 0;
    if (result.failure.empty() && sound && result.directions.falseAcknowledgements > 0) {
        result.failure = std::to_string(result.directions.falseAcknowledgements) +
                         " messages were acknowledged but had not arrived, on a bus without faults";
    }
    result.whole = result.failure.empty() && result.signal == 0 &&
                   result.directions.nibbles == file.size() * 2 * options.pairs;
}
