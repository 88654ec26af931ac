#include "RequestQueue.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::size_t mostChanges = 64;

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

/// A message to be sent. A request of send() is on the caller's stack; `submitted` owns those of submit().
struct RequestQueue::Request {
    const Bytes& message; ///< The caller's bytes; from submit(): `copy`.
    Clock::time_point deadline;
    Ticket ticket = 0; ///< 0: a caller waits for `ended`.
    Bytes copy{};
    std::optional<Result> result{};
    std::condition_variable ended{};

    Request(const Bytes& bytes, Clock::time_point latest) : message(bytes), deadline(latest) {}
    Request(Bytes bytes, Clock::time_point latest, Ticket number)
        : message(copy),
          deadline(latest),
          ticket(number),
          copy(std::move(bytes))
    {
    }
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;
};

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
    if (received.size() + 1 == queueLength) {
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
        if (received.size() + 1 == queueLength) {
            wakeup.set();
        }
    } else if (std::exchange(lossUnread, false)) {
        event = CANTransportClient::Loss{};
    }
    updateReadiness();
    return event;
}

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
    return queueLength == 0 || received.size() < queueLength + beyond;
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
    if (!hasEventLoop) {
        return;
    }
    if (changes.size() == mostChanges) {
        changes.pop_front();
        ++tally.statusChangesLeftOut;
    }
    changes.push_back(change);
    updateReadiness();
}

RequestQueue::Clock::time_point RequestQueue::expire(Clock::time_point now)
{
    const Lock lock(mutex);
    auto nearest = Clock::time_point::max();
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
