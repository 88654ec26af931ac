#include "bus/VirtualBus.h"

#include "velk/Millisleep.h"
#include "velk/VelkException.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace {

/// The longest delay that a paced bus catches up.
constexpr std::chrono::milliseconds greatestLag{10};

/// Frames that are carried before the bus checks nodes, new connections and stop().
constexpr int mostAtOnce = 256;

enum WaitIndex : std::size_t { quitIndex, listenerIndex, firstNodeIndex };

[[noreturn]] void fail(const std::string& what, int error)
{
    throwVelkException(what, ": ", std::strerror(error));
}

timespec untilThen(Pace::Clock::time_point then)
{
    using std::chrono::duration_cast;
    const auto left = std::max(then - Pace::Clock::now(), Pace::Clock::duration::zero());
    const auto seconds = duration_cast<std::chrono::seconds>(left);
    const auto rest = duration_cast<std::chrono::nanoseconds>(left - seconds);
    return {static_cast<time_t>(seconds.count()), static_cast<long>(rest.count())};
}

/// @return whether the file is the socket of a bus that has died.
bool isStale(const sockaddr_un& address)
{
    struct stat file {};
    if (lstat(address.sun_path, &file) == -1 || !S_ISSOCK(file.st_mode)) {
        return false;
    }
    const Descriptor probe(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    return connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
               -1 &&
           errno == ECONNREFUSED;
}

} // namespace

VirtualBus::VirtualBus(std::string socketPath, Options busOptions)
    : path(std::move(socketPath)),
      options(std::move(busOptions)),
      quit(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)),
      injector(options.faults)
{
    if (quit.get() == -1 || listener.get() == -1) {
        fail("no descriptor for a bus", errno);
    }
    listen();
    thread = std::thread(&VirtualBus::run, this);
}

VirtualBus::~VirtualBus() { stop(); }

void VirtualBus::stop()
{
    if (thread.joinable()) {
        eventfd_write(quit.get(), 1);
        thread.join();
        unlink(path.c_str());
    }
}

/// Calls listen() after chmod(): no client can connect before the socket has its mode.
void VirtualBus::listen()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        fail(path, ENAMETOOLONG);
    }
    path.copy(address.sun_path, path.size());
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    if (isStale(address)) {
        unlink(path.c_str());
    }
    if (bind(listener.get(), generic, sizeof address) == -1) {
        fail(path, errno);
    }
    if (chmod(path.c_str(), options.mode) == -1 || ::listen(listener.get(), SOMAXCONN) == -1) {
        const int error = errno;
        unlink(path.c_str());
        fail(path, error);
    }
}

VirtualBus::Counters VirtualBus::counters() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return published;
}

void VirtualBus::run()
{
    do {
        const Left left = carryFrames();
        forgetTheDead();
        publish();
        waitForEvents(left);
    } while (waits[quitIndex].revents == 0);
    publish();
    nodes.clear();
}

/// Carries waiting frames; on a paced bus only those that are due.
VirtualBus::Left VirtualBus::carryFrames()
{
    if (options.bitrate != 0) {
        carryAtPace();
        return Left::none;
    }
    for (int count = 0; count < mostAtOnce; ++count) {
        const auto transmission = nextTransmission();
        if (!transmission) {
            return Left::none;
        }
        carry(*transmission);
    }
    return Left::some;
}

/// A frame starts when the previous one ended, not when this thread woke up. Otherwise each frame would lose
/// the time of a wakeup.
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
            return Transmission{*frame, nodes[sender]->number, Fate::carried};
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
        for (const auto& node : nodes) {
            if (node->number != transmission.sender) {
                const bool taken = node->deliver(scratch, options.queueLength);
                ++(taken ? totals.delivered : totals.overflowDrops);
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

/// If the frame of a dead node is on the wire, it still reaches the others.
void VirtualBus::forgetTheDead()
{
    nodes.erase(
        std::remove_if(nodes.begin(), nodes.end(), [](const auto& node) { return node->gone(); }),
        nodes.end());
}

void VirtualBus::publish()
{
    const std::lock_guard<std::mutex> lock(mutex);
    published = totals;
}

void VirtualBus::waitForEvents(Left left)
{
    waits.assign({{quit.get(), POLLIN, 0}, {listener.get(), POLLIN, 0}});
    for (const auto& node : nodes) {
        const short events = node->events(); // without events, a hangup does not matter either
        waits.push_back({events == 0 ? -1 : node->descriptor(), events, 0});
    }
    if (onWire) {
        const timespec timeout = untilThen(freeAt);
        ppoll(waits.data(), waits.size(), &timeout, nullptr);
    } else {
        poll(waits.data(), waits.size(), left == Left::some ? 0 : -1);
    }
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const short events = waits[firstNodeIndex + i].revents;
        if ((events & POLLOUT) != 0) {
            nodes[i]->flush();
        }
        if ((events & ~POLLOUT) != 0) {
            nodes[i]->wake();
        }
    }
    if (waits[listenerIndex].revents != 0) {
        accept();
    }
}

/// Without a free descriptor the connection waits; the pause keeps the loop from spinning.
void VirtualBus::accept()
{
    Descriptor connection(accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (connection.get() == -1) {
        millisleep(1);
        return;
    }
    nodes.push_back(std::make_unique<BusNode>(std::move(connection), totals.nodes++));
}
