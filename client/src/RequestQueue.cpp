// SPDX-License-Identifier: MIT
#include "RequestQueue.h"

#include "Request.h"

#include <algorithm>
#include <utility>

// The operations of the mover, and of those who open and close the bus.

namespace {

constexpr std::size_t mostChanges = 64;

} // namespace

RequestQueue::RequestQueue(std::string busName, const CANTransportClient::Options& clientOptions,
                           const Wakeup& moverWakeup, Tally& counters)
    : bus(std::move(busName)),
      queueLength(clientOptions.queueLength),
      patience(clientOptions.patience),
      wakeup(moverWakeup),
      tally(counters)
{
}

RequestQueue::~RequestQueue() = default;

void RequestQueue::endAll(Result result)
{
    const Lock lock(mutex);
    endRequests(result);
}

void RequestQueue::endRequests(Result result)
{
    for (Request* const request : std::exchange(waiting, {})) {
        end(*request, result);
    }
    if (handedOver != nullptr) {
        withdrawn = true;
        end(*std::exchange(handedOver, nullptr), result);
        wakeup.set();
    }
    updateReadiness();
}

void RequestQueue::open()
{
    const Lock lock(mutex);
    state = Bus::open;
    withdrawn = false;
    lossUnread = false;
    updateReadiness();
}

void RequestQueue::lose()
{
    const Lock lock(mutex);
    if (state != Bus::open) {
        return;
    }
    state = Bus::lost;
    lossUnread = true;
    arrived.notify_all();
    endRequests(Result::busLost);
}

void RequestQueue::close()
{
    Lock lock(mutex);
    state = Bus::closed;
    arrived.notify_all();
    endRequests(Result::busLost);
    left.wait(lock, [this] { return callers == 0; });
}

bool RequestQueue::handOver(Bytes& message, Clock::time_point& deadline)
{
    const Lock lock(mutex);
    if (waiting.empty()) {
        return false;
    }
    handedOver = waiting.front();
    waiting.pop_front();
    withdrawn = false;
    message.assign(handedOver->message.begin(), handedOver->message.end());
    deadline = handedOver->deadline;
    return true;
}

bool RequestQueue::isWithdrawn()
{
    const Lock lock(mutex);
    return withdrawn;
}

void RequestQueue::finish(Result result)
{
    const Lock lock(mutex);
    withdrawn = false;
    if (handedOver != nullptr) {
        end(*std::exchange(handedOver, nullptr), result);
        updateReadiness();
    }
}

bool RequestQueue::hasRoom(std::size_t beyond)
{
    const Lock lock(mutex);
    return queueLength == 0 || received.size() < queueLength ||
           received.size() - queueLength < beyond;
}

void RequestQueue::deliver(Message message)
{
    const Lock lock(mutex);
    ++tally.messagesReceived;
    if (queueLength == 0) {
        return;
    }
    received.push_back(std::move(message));
    arrived.notify_one();
    updateReadiness();
}

void RequestQueue::report(CANTransportClient::StatusChange change)
{
    const Lock lock(mutex);
    if (changes.size() == mostChanges) {
        changes.pop_front();
        tally.statusChangesLeftOut += hasEventLoop ? 1U : 0U;
    }
    changes.push_back(change);
    updateReadiness();
}

RequestQueue::Clock::time_point RequestQueue::expire(Clock::time_point now)
{
    const Lock lock(mutex);
    if (now < nearest) {
        return nearest;
    }
    nearest = Clock::time_point::max();
    for (auto place = submitted.begin(); place != submitted.end();) {
        Request& request = (place++)->second; // withdraw() erases it
        if (request.deadline <= now) {
            withdraw(request, Result::expired);
        } else {
            nearest = std::min(nearest, request.deadline);
        }
    }
    updateReadiness();
    return nearest;
}

/// Ends a request that is no longer in `waiting` or `handedOver`.
void RequestQueue::end(Request& request, Result result)
{
    ++(result == Result::acknowledged ? tally.messagesSent : tally.messagesFailed);
    if (const Ticket ticket = request.ticket; ticket != 0) {
        submitted.erase(ticket);
        nearest = submitted.empty() ? Clock::time_point::max() : nearest;
        outcomes.push_back({ticket, result});
    } else {
        request.result = result;
        request.ended.notify_one();
    }
}

void RequestQueue::withdraw(Request& request, Result result)
{
    if (handedOver == &request) {
        handedOver = nullptr;
        withdrawn = true;
        wakeup.set();
    } else {
        waiting.erase(std::remove(waiting.begin(), waiting.end(), &request), waiting.end());
    }
    end(request, result);
}

bool RequestQueue::hasEvent() const
{
    return !outcomes.empty() || !changes.empty() || !received.empty() || lossUnread;
}

void RequestQueue::updateReadiness()
{
    if (!hasEventLoop || ready == hasEvent()) {
        return;
    }
    ready = !ready;
    if (ready) {
        readiness.set();
    } else {
        readiness.clear();
    }
}
