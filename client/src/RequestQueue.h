// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportClient.h"

#include "Tally.h"
#include "Wakeup.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>

/// Messages to be sent, received messages, outcomes and status changes, between callers and the mover.
/// Any thread. The mutex is never held while a function of the program runs.
class RequestQueue {
public:
    using Bytes = CANTransportClient::Bytes;
    using Clock = CANTransportClient::Clock;
    using Message = CANTransportClient::Message;
    using Result = CANTransportClient::SendResult;
    using Ticket = CANTransportClient::Ticket;

    /// @param moverWakeup is set whenever the mover has something to do.
    RequestQueue(std::string busName, const CANTransportClient::Options& clientOptions,
                 const Wakeup& moverWakeup, Tally& counters);
    ~RequestQueue();
    RequestQueue(const RequestQueue&) = delete;
    RequestQueue& operator=(const RequestQueue&) = delete;

    // For callers, as in CANTransportClient.
    Result send(const Bytes& message, Clock::time_point deadline);
    std::optional<Ticket> submit(Bytes&& message, Clock::time_point deadline);
    std::optional<Message> receive(std::chrono::milliseconds timeout);
    std::optional<CANTransportClient::Event> next();
    int descriptor();
    /// Ends all requests.
    void endAll(Result result);

    // For code that opens and closes the bus.
    void open();
    void lose();
    /// Ends all requests and waits until all callers have left. Later calls return at once.
    void close();

    // For the mover.
    /// Hands over the next message: a copy of its bytes, and its deadline. @return false if there is none.
    bool handOver(Bytes& message, Clock::time_point& deadline);
    /// @return whether the message that was handed over has been withdrawn.
    bool isWithdrawn();
    /// Sets the outcome of the message that was handed over.
    void finish(Result result);
    /// @return whether fewer messages wait than the program has asked for, and `beyond` more.
    bool hasRoom(std::size_t beyond = 0);
    void deliver(Message message);
    void report(CANTransportClient::StatusChange change);
    /// Ends submitted requests whose deadline has passed. @return the next deadline.
    Clock::time_point expire(Clock::time_point now);

private:
    enum class Bus { open, lost, closed };
    struct Request;
    class Caller;
    using Lock = std::unique_lock<std::mutex>;

    void endRequests(Result result);
    void end(Request& request, Result result);
    void withdraw(Request& request, Result result);
    bool hasEvent() const;
    void updateReadiness();

    const std::string bus;
    const std::size_t queueLength;
    const std::chrono::milliseconds patience;
    const Wakeup& wakeup;
    Tally& tally;
    const Wakeup readiness; ///< Set while next() has an event.

    std::mutex mutex; // guards all below
    Bus state = Bus::lost;
    std::deque<Request*> waiting;
    Request* handedOver = nullptr;
    bool withdrawn = false; ///< The message that was handed over has been withdrawn.
    std::map<Ticket, Request> submitted;
    Clock::time_point nearest = Clock::time_point::max(); ///< None of `submitted` is due before.
    Ticket lastTicket = 0;
    std::deque<Message> received;
    std::condition_variable arrived; ///< A message has arrived, or the bus is lost or closed.
    std::deque<CANTransportClient::Outcome> outcomes;
    std::deque<CANTransportClient::StatusChange> changes;
    bool lossUnread = false;
    bool hasEventLoop = false; ///< descriptor() was called.
    bool ready = false;        ///< `readiness` is set.
    unsigned int callers = 0;  ///< Threads in send() or receive().
    std::condition_variable left;
};
