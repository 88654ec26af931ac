// SPDX-License-Identifier: MIT
#include "Request.h"
#include "RequestQueue.h"

#include <algorithm>
#include <utility>

// The operations of callers: the threads of the program.

namespace {

/// A longer time could overflow the clock.
constexpr std::chrono::hours longest{24 * 365};

CANTransportClient::Clock::time_point after(std::chrono::milliseconds time)
{
    return CANTransportClient::Clock::now() + std::min<std::chrono::milliseconds>(time, longest);
}

void checkSize(std::size_t size)
{
    constexpr unsigned int longestMessage = CANTransportThread::MAX_MESSAGE_LENGTH;
    if (size == 0 || size > longestMessage) {
        throwVelkException("got a message of ", size, " bytes, expected 1 to ", longestMessage);
    }
}

} // namespace

/// A thread in send() or receive(). The client's destructor waits until it has left. Constructed and
/// destroyed under the mutex.
class RequestQueue::Caller {
public:
    explicit Caller(RequestQueue& queue) : owner(queue) { ++owner.callers; }
    ~Caller()
    {
        if (--owner.callers == 0) {
            owner.left.notify_all();
        }
    }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

private:
    RequestQueue& owner;
};

RequestQueue::Result RequestQueue::send(const Bytes& message, Clock::time_point deadline)
{
    checkSize(message.size());
    Request request(message, std::min(deadline, after(patience)));
    if (request.deadline <= Clock::now()) {
        return Result::expired;
    }
    Lock lock(mutex);
    if (state != Bus::open) {
        return Result::busLost;
    }
    const Caller caller(*this);
    // Needed also when the thread is cancelled while it waits: no pointer to this request may stay.
    struct Withdrawal {
        RequestQueue& queue;
        Request& request;
        ~Withdrawal()
        {
            if (!request.result) {
                queue.withdraw(request, Result::expired);
            }
        }
    };
    {
        const Withdrawal withdrawal{*this, request};
        waiting.push_back(&request);
        wakeup.set();
        request.ended.wait_until(lock, request.deadline,
                                 [&] { return request.result.has_value(); });
    }
    return *request.result;
}

std::optional<RequestQueue::Ticket> RequestQueue::submit(Bytes&& message,
                                                         Clock::time_point deadline)
{
    checkSize(message.size());
    const auto latest = std::min(deadline, after(patience));
    const bool expired = latest <= Clock::now();
    const Lock lock(mutex);
    if (submitted.size() + outcomes.size() >= CANTransportClient::maxSubmitted) {
        return std::nullopt;
    }
    const Ticket ticket = ++lastTicket;
    if (expired || state != Bus::open) {
        outcomes.push_back({ticket, expired ? Result::expired : Result::busLost});
        updateReadiness();
        return ticket;
    }
    const auto place = submitted.try_emplace(ticket, std::move(message), latest, ticket).first;
    nearest = std::min(nearest, latest);
    waiting.push_back(&place->second);
    wakeup.set();
    return ticket;
}

std::optional<RequestQueue::Message> RequestQueue::receive(std::chrono::milliseconds timeout)
{
    const auto deadline = after(timeout);
    Lock lock(mutex);
    const Caller caller(*this);
    arrived.wait_until(lock, deadline, [this] { return !received.empty() || state != Bus::open; });
    if (received.empty()) {
        if (state == Bus::lost) {
            throw CANTransportClient::BusLost(bus);
        }
        return std::nullopt;
    }
    auto message = std::move(received.front());
    received.pop_front();
    if (received.size() + 1 >= queueLength) {
        wakeup.set(); // there is room again
    }
    updateReadiness();
    return message;
}

int RequestQueue::descriptor()
{
    const Lock lock(mutex);
    hasEventLoop = true;
    updateReadiness();
    return readiness.descriptor();
}

std::optional<CANTransportClient::Event> RequestQueue::next()
{
    const Lock lock(mutex);
    std::optional<CANTransportClient::Event> event;
    if (!outcomes.empty()) {
        event = outcomes.front();
        outcomes.pop_front();
    } else if (!changes.empty()) {
        event = changes.front();
        changes.pop_front();
    } else if (!received.empty()) {
        event = std::move(received.front());
        received.pop_front();
        if (received.size() + 1 >= queueLength) {
            wakeup.set();
        }
    } else if (std::exchange(lossUnread, false)) {
        event = CANTransportClient::Loss{};
    }
    updateReadiness();
    return event;
}
