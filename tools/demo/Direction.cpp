// SPDX-License-Identifier: MIT
#include "demo/Direction.h"

#include <algorithm>
#include <utility>

namespace {

using std::chrono::milliseconds;

constexpr milliseconds timeToArrive{2000};

/// After a failure the receiver may still wait for the rest of the message, for up to a second from its first
/// frame. Until then it refuses a new message. The random part keeps the two directions from colliding again
/// and again.
constexpr int shortestPauseMs = 900;
constexpr int longestPauseMs = 1300;

} // namespace

Direction::Direction(const NibbleFile& sentFile, CANTransportClient& from, CANTransportClient& to,
                     Setup directionSetup)
    : file(sentFile),
      sender(from),
      receiver(to),
      setup(std::move(directionSetup)),
      random(setup.seed),
      received(sentFile),
      sending([this] { send(); }),
      receiving([this] { receive(); })
{
}

Direction::~Direction()
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
        changed.notify_all();
    }
    sender.cancel();
    sending.join();
    receiving.join();
}

Direction::Counters Direction::counters() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    Counters all = counts;
    all.repeats = received.repeats();
    all.nibbles = received.position();
    return all;
}

void Direction::send()
{
    std::uniform_int_distribution<std::size_t> mixed(1, CANTransportThread::MAX_MESSAGE_LENGTH);
    std::size_t end = 0;
    unsigned int number = 0;
    while (end < file.size()) {
        const auto message = file.pack(end, number++, setup.size ? *setup.size : mixed(random));
        end = std::min(file.size(), end + 2 * message.size() - 1);
        if (!sendUntilArrived(message, end)) {
            return;
        }
    }
    const std::lock_guard<std::mutex> lock(mutex);
    counts.done = true;
}

/// @return false if the destructor was called before the message arrived.
bool Direction::sendUntilArrived(const NibbleFile::Bytes& message, std::size_t end)
{
    std::uniform_int_distribution<int> pauseMs(shortestPauseMs, longestPauseMs);
    std::unique_lock<std::mutex> lock(mutex);
    const auto over = [&] { return stopping || received.position() >= end; };
    for (++counts.messages; !stopping;) {
        ++counts.requests;
        lock.unlock();
        const bool acknowledged =
            sender.send(message) == CANTransportClient::SendResult::acknowledged;
        lock.lock();
        if (acknowledged && changed.wait_for(lock, timeToArrive, over)) {
            break;
        }
        ++(acknowledged ? counts.falseAcknowledgements : counts.givenUp);
        changed.wait_for(lock, milliseconds(pauseMs(random)), [this] { return stopping; });
    }
    return !stopping;
}

void Direction::receive()
{
    constexpr milliseconds lookInterval{50};
    for (;;) {
        std::optional<CANTransportClient::Message> message;
        std::string failure;
        try {
            message = receiver.receive(lookInterval);
        } catch (const CANTransportClient::BusLost& loss) {
            failure = loss.what();
        }
        const std::lock_guard<std::mutex> lock(mutex);
        if (message && !received.take(message->bytes)) {
            failure = setup.receiver + " received a message of " +
                      std::to_string(message->bytes.size()) +
                      " bytes that differs from the file at byte " +
                      std::to_string(received.position() / 2);
        }
        changed.notify_all();
        counts.failure = failure;
        if (stopping || !failure.empty()) {
            return;
        }
    }
}
