// SPDX-License-Identifier: MIT
#include "bus/VirtualBus.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <new>
#include <utility>

#include <poll.h>
#include <sys/epoll.h>

// What the bus waits for: nodes, connections, the wire and the end.

namespace {

/// How long connections wait if there is no descriptor even to refuse them.
constexpr std::chrono::milliseconds pauseWithoutDescriptor{10};

timespec toTimespec(std::chrono::nanoseconds time)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    return {static_cast<time_t>(seconds.count()), static_cast<long>((time - seconds).count())};
}

} // namespace

void VirtualBus::waitForEvents()
{
    updateInterest();
    int limit = -1;
    if (const auto next = nextTime(); next != Clock::time_point::max()) {
        limit = 0;
        if (const auto left = next - Clock::now(); left > Clock::duration::zero()) {
            const timespec time = toTimespec(left); // epoll_wait() counts in milliseconds
            pollfd any{poller.get(), POLLIN, 0};
            ppoll(&any, 1, &time, nullptr);
        }
    }
    epoll_event events[64];
    const int count = epoll_wait(poller.get(), events, std::size(events), limit);
    for (int i = 0; i < count; ++i) {
        void* const what = events[i].data.ptr;
        if (what == &stopped) {
            stopped = true;
        } else if (what == &listener) {
            accept();
        } else {
            static_cast<BusNode*>(what)->note(events[i].events);
        }
    }
}

/// A node that is known to be readable is not waited for: it has to wait for its turn, or for the wire. With
/// nothing to wait for it must leave the poller, which would report a hangup again and again.
void VirtualBus::updateInterest()
{
    for (const auto& node : nodes) {
        watch(node->descriptor(), node->watched, node->interest(), node.get());
    }
    watch(listener->descriptor(), listening, acceptsAt <= now ? EPOLLIN : 0U, &listener);
}

/// What fails is tried again in the next round.
void VirtualBus::watch(int descriptor, std::uint32_t& watched, std::uint32_t events,
                       void* what) const
{
    if (watched != events) {
        epoll_event event{events, {what}};
        const int change = watched == 0  ? EPOLL_CTL_ADD
                           : events == 0 ? EPOLL_CTL_DEL
                                         : EPOLL_CTL_MOD;
        if (epoll_ctl(poller.get(), change, descriptor, &event) == 0) {
            watched = events;
        }
    }
}

/// @return when the bus has to continue, even if nothing happens.
VirtualBus::Clock::time_point VirtualBus::nextTime() const
{
    if (onWire) {
        return freeAt;
    }
    auto next = listening == 0 ? acceptsAt : Clock::time_point::max();
    for (const auto& node : nodes) {
        if (node->isReadable()) {
            next = std::min(next, node->restsUntil);
        }
    }
    return next;
}

void VirtualBus::accept()
try {
    BusSocket::Accepted accepted = listener->accept();
    if (accepted.connection.get() == -1) {
        if (accepted.refused) {
            ++totals.noResource;
        } else if (accepted.error != EAGAIN && accepted.error != ECONNABORTED) {
            acceptsAt = Clock::now() + pauseWithoutDescriptor;
        }
        return;
    }
    if (nodes.size() >= options.nodes) {
        ++totals.tooMany;
        return;
    }
    auto node = std::make_unique<BusNode>(std::move(accepted.connection), totals.nodes, ring.end());
    ++totals.nodes;
    nodes.push_back(std::move(node));
} catch (const std::bad_alloc&) {
    ++totals.noResource;
}
