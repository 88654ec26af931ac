// SPDX-License-Identifier: MIT
#include "bus/VirtualBus.h"

#include "velk/VelkException.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/epoll.h>
#include <sys/eventfd.h>

namespace {

/// The longest delay that a paced bus catches up.
constexpr std::chrono::milliseconds greatestLag{10};

/// What the turn of a node may cost: each of its frames is sent to all others.
constexpr std::size_t deliveriesInATurn = 128;
constexpr std::size_t mostFramesInATurn = 16;
static_assert(mostFramesInATurn <= PacketBatch::size);

Descriptor event()
{
    return aboveStandardStreams(Descriptor(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)));
}

} // namespace

VirtualBus::VirtualBus(std::string socketPath, Options busOptions)
    : options(std::move(busOptions)),
      quit(event()),
      refused(event()),
      poller(aboveStandardStreams(Descriptor(epoll_create1(EPOLL_CLOEXEC)))),
      ring(options.queueLength + PacketBatch::size),
      injector(options.faults)
{
    if (quit.get() == -1 || refused.get() == -1 || poller.get() == -1) {
        throwVelkException("no descriptor for a bus: ", std::strerror(errno));
    }
    nodes.reserve(options.nodes);
    listener.emplace(std::move(socketPath), options.mode);
    std::uint32_t watched = 0;
    watch(quit.get(), watched, EPOLLIN, &stopped);
    watch(listener->descriptor(), listening, EPOLLIN, &listener);
    if (watched == 0 || listening == 0) {
        throwVelkException("no memory for a bus");
    }
    thread = std::thread(&VirtualBus::run, this);
}

VirtualBus::~VirtualBus() { stop(); }

void VirtualBus::stop()
{
    if (thread.joinable()) {
        eventfd_write(quit.get(), 1);
        thread.join();
        listener.reset();
    }
}

VirtualBus::Counters VirtualBus::counters() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return published;
}

std::size_t VirtualBus::framesInATurn(std::size_t nodes)
{
    return std::clamp<std::size_t>(deliveriesInATurn / std::max<std::size_t>(nodes, 1), 1,
                                   mostFramesInATurn);
}

void VirtualBus::run()
{
    while (!stopped) {
        now = Clock::now();
        if (options.bitrate == 0) {
            carryRound();
        } else {
            carryAtPace();
        }
        deliver();
        forgetTheDead();
        publish();
        waitForEvents();
    }
    publish();
    nodes.clear();
}

/// Gives each node that waits to send one turn.
void VirtualBus::carryRound()
{
    const std::size_t most = framesInATurn(nodes.size());
    for (const auto& node : nodes) {
        if (node->isReadable() && node->restsUntil <= now) {
            takeTurn(*node, most);
        }
    }
}

void VirtualBus::takeTurn(BusNode& node, std::size_t most)
{
    const std::size_t count = node.receive(incoming, most);
    for (std::size_t i = 0; i < count; ++i) {
        if (const auto frame = incoming.frame(i)) {
            plan(*frame, node.number);
            while (planned.taken < planned.count) {
                carry(planned.parts[planned.taken++]);
            }
        } else {
            ++totals.unusable;
        }
    }
    if (count > 0 && rest.sharesTheBus(node.number, now) && node.isReadable()) {
        node.restsUntil = now + Rest::duration;
    }
}

/// A frame starts when the previous one ended, not when this thread woke up. Otherwise each frame would lose
/// the time of a wakeup.
void VirtualBus::carryAtPace()
{
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
    if (planned.taken == planned.count && !planNextFrame()) {
        return std::nullopt;
    }
    return planned.parts[planned.taken++];
}

/// @return false if no node has a frame now. A packet that is no frame takes the node's turn as well.
bool VirtualBus::planNextFrame()
{
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const std::size_t sender = (turn + i) % nodes.size();
        BusNode& node = *nodes[sender];
        if (!node.isReadable() || node.receive(incoming, 1) == 0) {
            continue;
        }
        if (const auto frame = incoming.frame(0)) {
            plan(*frame, node.number);
            turn = sender + 1;
            return true;
        }
        ++totals.unusable;
    }
    return false;
}

void VirtualBus::plan(const CANFrame& frame, std::uint64_t sender)
{
    planned = {{{frame, sender, Fate::carried}}, 1, 0};
    if (!options.faults.any()) {
        return;
    }
    const FaultInjector::Verdict verdict = injector.judge(frame);
    if (verdict.dropped) {
        planned.parts[0].fate = Fate::dropped;
    }
    if (verdict.duplicated) {
        planned.parts[planned.count++] = {frame, sender, Fate::duplicate};
    }
    if (verdict.stray) {
        planned.parts[planned.count++] = {*verdict.stray, sender, Fate::stray};
    }
}

void VirtualBus::carry(const Transmission& transmission)
{
    count(transmission.fate);
    if (transmission.fate != Fate::dropped) {
        if (ring.isFull()) {
            for (const auto& node : nodes) {
                node->leaveOldest(ring, totals);
            }
        }
        ring.add(transmission.frame, transmission.sender);
        if (ring.end() - delivered == PacketBatch::size) {
            deliver();
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

void VirtualBus::deliver()
{
    for (const auto& node : nodes) {
        node->deliver(ring, outgoing, totals);
    }
    delivered = ring.end();
}

/// If the frame of a dead node is on the wire, it still reaches the others.
void VirtualBus::forgetTheDead()
{
    nodes.erase(
        std::remove_if(nodes.begin(), nodes.end(), [](const auto& node) { return node->isGone(); }),
        nodes.end());
    totals.present = nodes.size();
}

void VirtualBus::publish()
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (totals.refusals() != published.refusals()) {
        eventfd_write(refused.get(), 1);
    }
    published = totals;
}
