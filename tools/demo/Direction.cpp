#include "demo/Direction.h"

#include "velk/CANTransportThread.h"

#include <algorithm>

namespace {

constexpr std::chrono::milliseconds lookInterval{30};
constexpr int looksToBelieve = 3; ///< A request that is just being taken in is seen nowhere.
constexpr std::chrono::milliseconds timeToArrive{100};

/// After a failure the receiver may still wait for the rest of the message, for a second from its
/// first frame at the most, and refuses a new one until then. A random part keeps the directions
/// from meeting again and again.
constexpr int shortestPauseMs = 900;
constexpr int longestPauseMs = 1300;

} // namespace

Direction::Direction(const NibbleFile& sentFile, DemoEndpoint& from, DemoEndpoint& to,
                     const Setup& directionSetup)
    : file(sentFile),
      sender(from),
      receiver(to),
      setup(directionSetup),
      received(sentFile),
      random(directionSetup.seed)
{
}

void Direction::acknowledged()
{
    if (phase == Phase::underWay) {
        phase = Phase::acknowledged;
        doubtUntil = {};
    }
}

void Direction::arrived(const NibbleFile::Bytes& arrival)
{
    if (!received.take(arrival) && reason.empty()) {
        reason = receiver.name() + " received a message of " + std::to_string(arrival.size()) +
                 " bytes that differs from the file at byte " +
                 std::to_string(received.position() / 2);
    }
}

void Direction::advance(Clock::time_point now, const NodeCounters& bus)
{
    switch (phase) {
    case Phase::next:
        sendNext(now);
        break;
    case Phase::underWay:
        watch(now, bus);
        break;
    case Phase::acknowledged:
        confirm(now);
        break;
    case Phase::pause:
        if (now >= pauseUntil) {
            request(now);
        }
        break;
    case Phase::done:
        break;
    }
}

void Direction::sendNext(Clock::time_point now)
{
    if (end == file.size()) {
        phase = Phase::done;
        return;
    }
    std::uniform_int_distribution<std::size_t> mixed(1, CANTransportThread::MAX_MESSAGE_LENGTH);
    const std::size_t size = setup.size ? *setup.size : mixed(random);
    message = file.pack(end, static_cast<unsigned int>(counts.messages % 16), size);
    end = std::min(file.size(), end + 2 * message.size() - 1);
    ++counts.messages;
    request(now);
}

void Direction::request(Clock::time_point now)
{
    sender.send(message);
    ++counts.requests;
    phase = Phase::underWay;
    emptyLooks = 0;
    nextLook = now + lookInterval;
}

void Direction::watch(Clock::time_point now, const NodeCounters& bus)
{
    if (now < nextLook) {
        return;
    }
    nextLook = now + lookInterval;
    emptyLooks = sender.seemsIdle(bus) ? emptyLooks + 1 : 0;
    if (emptyLooks >= looksToBelieve) {
        ++counts.givenUp;
        sendAgainLater(now);
    }
}

void Direction::confirm(Clock::time_point now)
{
    if (received.position() >= end) {
        phase = Phase::next;
        sendNext(now);
    } else if (doubtUntil == Clock::time_point{}) {
        doubtUntil = now + timeToArrive;
    } else if (now >= doubtUntil) {
        ++counts.falseAcknowledgements;
        sendAgainLater(now);
    }
}

void Direction::sendAgainLater(Clock::time_point now)
{
    std::uniform_int_distribution<int> length(shortestPauseMs, longestPauseMs);
    pauseUntil = now + std::chrono::milliseconds(length(random));
    phase = Phase::pause;
}
