#include "bus/VirtualBus.h"

#include "velk/VelkException.h"

#include <algorithm>
#include <csignal>

namespace {

/// How far a paced bus may be behind: more is not made up for, so that a process that was held up
/// goes on at its pace.
constexpr std::chrono::milliseconds greatestLag{10};

constexpr std::size_t wakeUpIndex = 0;
constexpr std::size_t sourceIndex(std::size_t node) { return 1 + 2 * node; }

class AllSignalsBlocked {
public:
    AllSignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

private:
    sigset_t before{};
};

timespec untilThen(Pace::Clock::time_point then)
{
    using std::chrono::duration_cast;
    const auto left = std::max(then - Pace::Clock::now(), Pace::Clock::duration::zero());
    const auto seconds = duration_cast<std::chrono::seconds>(left);
    const auto rest = duration_cast<std::chrono::nanoseconds>(left - seconds);
    return {static_cast<time_t>(seconds.count()), static_cast<long>(rest.count())};
}

} // namespace

VirtualBus::VirtualBus() : VirtualBus(Options()) {}

VirtualBus::VirtualBus(Options busOptions)
    : options(std::move(busOptions)),
      injector(options.faults)
{
}

VirtualBus::~VirtualBus() { stop(); }

VirtualBus::Attachment VirtualBus::attach(int inputDescriptor, AcceptanceFilter filter)
{
    auto node = std::make_unique<BusNode>(inputDescriptor, filter, options.queueLength);
    const int proxyDescriptor = node->proxyDescriptor();
    const std::lock_guard<std::mutex> lock(mutex);
    arrivals.push_back(std::move(node));
    published.nodes.emplace_back();
    wake.notify();
    return {published.nodes.size() - 1, proxyDescriptor};
}

void VirtualBus::request(std::size_t node, std::vector<unsigned char> record)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (node >= published.nodes.size()) {
        VelkException error;
        error << "VirtualBus::request(): there is no node " << node;
        throw error;
    }
    requests.emplace_back(node, std::move(record));
    wake.notify();
}

void VirtualBus::start()
{
    const std::lock_guard<std::mutex> lock(lifecycle);
    if (thread.joinable()) {
        return;
    }
    stopping = false;
    const AllSignalsBlocked inherited;
    thread = std::thread(&VirtualBus::run, this);
}

void VirtualBus::stop()
{
    const std::lock_guard<std::mutex> lock(lifecycle);
    if (!thread.joinable()) {
        return;
    }
    {
        const std::lock_guard<std::mutex> order(mutex);
        stopping = true;
    }
    wake.notify();
    thread.join();
}

VirtualBus::Counters VirtualBus::counters() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return published;
}

void VirtualBus::run()
{
    while (takeOrders()) {
        carryFrames();
        flushQueues();
        publish();
        waitForEvents();
        readSenders();
    }
}

bool VirtualBus::takeOrders()
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (stopping) {
        return false;
    }
    std::move(arrivals.begin(), arrivals.end(), std::back_inserter(nodes));
    arrivals.clear();
    for (const auto& [node, bytes] : requests) {
        nodes.at(node)->request(bytes);
    }
    requests.clear();
    return true;
}

/// All that waits or, at a bitrate, all whose time has come.
void VirtualBus::carryFrames()
{
    if (options.bitrate != 0) {
        carryAtPace();
        return;
    }
    while (const auto transmission = nextTransmission()) {
        carry(*transmission);
    }
}

/// A frame that follows another one starts where that one ended, not when this thread got to it:
/// the time that a wakeup takes would otherwise be lost for each frame.
void VirtualBus::carryAtPace()
{
    const auto now = Pace::Clock::now();
    auto start = now;
    for (;;) {
        if (onWire) {
            if (now < freeAt) {
                return;
            }
            carry(*onWire);
            start = std::max(freeAt, now - greatestLag);
        }
        onWire = nextTransmission();
        if (!onWire) {
            return;
        }
        freeAt = start + Pace::timeOfFrame(onWire->frame.len, options.bitrate);
    }
}

std::optional<VirtualBus::Transmission> VirtualBus::nextTransmission()
{
    if (planned.empty()) {
        const auto next = nextFrame();
        if (!next || !options.faults.any()) {
            return next;
        }
        planFaults(*next);
    }
    const Transmission next = planned.front();
    planned.pop_front();
    return next;
}

std::optional<VirtualBus::Transmission> VirtualBus::nextFrame()
{
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const std::size_t sender = (turn + i) % nodes.size();
        if (const auto frame = nodes[sender]->nextFrame(totals.unreadable)) {
            turn = sender + 1;
            return Transmission{*frame, sender, Fate::carried};
        }
    }
    return std::nullopt;
}

void VirtualBus::planFaults(const Transmission& original)
{
    const FaultInjector::Verdict verdict = injector.judge(original.frame);
    planned.push_back(original);
    if (verdict.dropped) {
        planned.back().fate = Fate::dropped;
    }
    if (verdict.duplicated) {
        planned.push_back({original.frame, original.sender, Fate::duplicate});
    }
    if (verdict.stray) {
        planned.push_back({*verdict.stray, original.sender, Fate::stray});
    }
}

void VirtualBus::carry(const Transmission& transmission)
{
    count(transmission.fate);
    if (transmission.fate != Fate::dropped) {
        serialise(transmission.frame, scratch);
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            if (i != transmission.sender && nodes[i]->accepts(transmission.frame.canID)) {
                nodes[i]->deliver(scratch);
            }
        }
    }
    if (options.observer) {
        options.observer(transmission.frame, transmission.fate);
    }
}

void VirtualBus::count(Fate fate)
{
    switch (fate) {
    case Fate::carried:
        ++totals.carried;
        break;
    case Fate::dropped:
        ++totals.faultDrops;
        break;
    case Fate::duplicate:
        ++totals.duplicates;
        break;
    case Fate::stray:
        ++totals.strays;
        break;
    }
}

void VirtualBus::flushQueues()
{
    for (const auto& node : nodes) {
        node->flush();
    }
}

void VirtualBus::publish()
{
    totals.delivered = 0;
    totals.overflowDrops = 0;
    totals.nodes.resize(nodes.size());
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        totals.nodes[i] = nodes[i]->counters();
        totals.delivered += totals.nodes[i].delivered;
        totals.overflowDrops += totals.nodes[i].overflowDrops;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    const std::size_t attached = published.nodes.size();
    published = totals;
    published.nodes.resize(attached);
}

void VirtualBus::waitForEvents()
{
    waits.clear();
    waits.push_back({wake.descriptor(), POLLIN, 0});
    for (const auto& node : nodes) {
        waits.push_back({node->readableSource(), POLLIN, 0});
        waits.push_back({node->writableTarget(), POLLOUT, 0});
    }
    if (onWire) {
        const timespec timeout = untilThen(freeAt);
        ppoll(waits.data(), waits.size(), &timeout, nullptr);
    } else {
        poll(waits.data(), waits.size(), -1);
    }
    if (waits[wakeUpIndex].revents != 0) {
        wake.clear();
    }
}

void VirtualBus::readSenders()
{
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        if (waits[sourceIndex(i)].revents != 0) {
            nodes[i]->read();
        }
    }
}
