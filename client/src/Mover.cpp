// SPDX-License-Identifier: MIT
#include "Mover.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <exception>
#include <system_error>
#include <utility>

#include <poll.h>

namespace {

using namespace std::chrono_literals;

/// Threads that start while it exists inherit the mask, so they take no signal of the program.
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

} // namespace

Mover::Mover(std::unique_ptr<Link> openedLink, const Surroundings& outside)
    : link(std::move(openedLink)),
      around(outside),
      answersDroppedBefore(around.tally.answersDropped),
      framesDroppedBefore(around.tally.framesDropped),
      gathering(around.options.gather)
{
    const AllSignalsBlocked inherited;
    thread = std::thread(&Mover::run, this);
}

Mover::~Mover()
{
    stopping = true;
    around.wakeup.set();
    thread.join();
}

void Mover::run()
{
    try {
        openPort();
        while (pass()) {
        }
        drain();
        countGate();
    } catch (const std::exception& error) { // no memory
        around.log.pass(LogUtil::Level::error, std::string("CANTransportClient: ") + error.what());
    }
    if (!stopping) {
        around.queue.lose();
    }
}

/// @return false if the bus is lost or the client ends.
bool Mover::pass()
{
    do {
        now = Clock::now();
        if (!moveOut()) {
            return false;
        }
        if (const auto answer = gate.released(now)) {
            port->addFrame(*answer);
        }
        takeMessages();
        abandonWithdrawn();
        handOver();
    } while (port->run());
    countGate();
    return !isOver() && wait();
}

void Mover::openPort()
{
    if (port) {
        drain();
    }
    port.emplace(around.options, around.log);
    muted = false;
    startHeard = false;
    gate.reset();
}

/// Waits for something to do. @return false if the bus is lost or the client ends.
bool Mover::wait()
{
    const auto onlyIf = [](bool wanted, short events) { return wanted ? events : short{0}; };
    // A client that is behind reads nothing from the bus, but has to notice its end.
    const bool takes = hasRoom() && !port->isBehind() && (now >= gatherEnd || stage != Stage::none);
    pollfd wakeup{around.wakeup.descriptor(), POLLIN, 0};
    pollfd bus{link->descriptor(),
               static_cast<short>(POLLRDHUP | onlyIf(takes, POLLIN) | onlyIf(linkBlocked, POLLOUT)),
               0};
    pollfd all[] = {wakeup, bus};
    const auto until = nextEvent();
    const auto left = std::chrono::ceil<std::chrono::nanoseconds>(until - Clock::now());
    const auto nanoseconds = std::max<std::chrono::nanoseconds>(left, 0ns).count();
    const timespec limit{static_cast<time_t>(nanoseconds / 1'000'000'000),
                         static_cast<long>(nanoseconds % 1'000'000'000)};
    if (ppoll(all, std::size(all), until == Clock::time_point::max() ? nullptr : &limit, nullptr) ==
            -1 &&
        errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), "poll");
    }
    const auto [ofWakeup, ofBus] = all;
    if (ofWakeup.revents != 0) {
        around.wakeup.clear();
    }
    now = Clock::now();
    const bool ended = (ofBus.revents & (POLLERR | POLLHUP | POLLRDHUP)) != 0;
    const bool readable = (ofBus.revents & POLLIN) != 0;
    if ((readable || ended) && !takeFromBus()) {
        return false;
    }
    return !isOver();
}

/// The mover waits for the outcome of a message that is on its way: its late answer could end the first
/// message of the next connection.
bool Mover::isOver() const
{
    return stopping && stage != Stage::withEndpoint && stage != Stage::abandoned;
}

Mover::Clock::time_point Mover::nextEvent()
{
    auto time = around.queue.expire(now);
    const auto include = [&](Clock::time_point candidate) {
        if (candidate > now) { // a time in the past waits for another event
            time = std::min(time, candidate);
        }
    };
    include(port->wakeAt());
    include(gate.wakeAt(now));
    include(linkPause);
    if (stage == Stage::none) {
        include(gatherEnd);
    }
    if (stage == Stage::abandoned || stage == Stage::resting) {
        include(stageEnd);
    }
    return time;
}

/// Before the endpoint ends: delivers all messages that it has acknowledged, and handles what it has got.
void Mover::drain()
{
    do {
        while (auto received = port->takeMessage()) {
            around.queue.deliver(std::move(*received));
        }
        sendLastAnswers();
    } while (port->run());
}
