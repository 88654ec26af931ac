#pragma once

#include "BusLink.h"

#include "velk/CANTransportClient.h"
#include "velk/Descriptor.h"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

/// What is behind a CANTransportClient: the endpoint, the link, and the thread that moves records
/// between them. The endpoint has one request at a time, so that each outcome belongs to one message.
class ClientEngine {
public:
    ClientEngine(std::string busName, CANTransportClient::Options clientOptions);
    ~ClientEngine();
    ClientEngine(const ClientEngine&) = delete;
    ClientEngine& operator=(const ClientEngine&) = delete;

    CANTransportClient::SendResult
    send(const CANTransportClient::Bytes& bytes,
         std::optional<CANTransportClient::Clock::time_point> deadline);
    std::optional<CANTransportClient::Message> receive(std::chrono::milliseconds timeout);
    void cancel();
    void reconnect();

private:
    using Bytes = CANTransportClient::Bytes;
    using Status = CANTransportClient::Status;
    using Result = CANTransportClient::SendResult;

    /// A message in send(), whose frame it lives in.
    struct Request {
        const Bytes& message;
        std::optional<Result> result;
    };
    /// A thread in send() or receive(): the destructor waits for it to leave.
    class Caller;

    // Requests, under the mutex.
    void end(Request*& request, Result result);
    void giveUp(Request& request);
    void giveUpAll();

    // The endpoint's reports.
    void onStatus(Status status, unsigned short value);
    /// @return whether the client has to hear of it; under the mutex.
    bool note(Status& status);

    // The mover: see Mover.cpp.
    void startMoving();
    void stopMoving();
    void move();
    void startEndpoint();
    void endEndpoint();
    void letEndpointFinish();
    void waitUntilRead(int& leftMs) const;
    bool takeOrders();
    void handOver();
    bool waitForEvents();
    bool takeFrames();
    void parseFrames();
    bool isForEndpoint(const CANTraceMessageBase& frame);
    void feedEndpoint();
    bool takeMessages(std::size_t most);
    bool hasRoom() const; ///< Under the mutex.
    void wakeUp() const;

    const std::string bus;
    const CANTransportClient::Options options;
    const Descriptor wake;

    std::mutex lifecycle; ///< Serialises reconnect() and the destructor.
    std::thread mover;

    // The mover's own; made before it starts.
    std::unique_ptr<BusLink> link;
    std::unique_ptr<TraceMessageBuffer> frames; ///< From the bus.
    std::unique_ptr<CANTransportThread> endpoint;
    int output = -1; ///< Where the endpoint's messages come out; the endpoint's own.
    int input = -1;  ///< Where records go in; the endpoint's own.
    std::unique_ptr<TraceMessageBuffer> messages; ///< From the endpoint.
    Bytes pending;             ///< What is left of whole records on their way into the endpoint.
    bool recordBegun = false;  ///< `pending` may begin within a record.
    bool behindAStart = false; ///< The endpoint has got the first frame of some message.

    // Guarded by the mutex, which is never held while the endpoint or the handler is called.
    std::mutex mutex;
    std::condition_variable changed; ///< A request has ended, a message has come, or all is over.
    std::deque<Request*> waiting;
    Request* underWay = nullptr; ///< The one that the endpoint has.
    std::deque<CANTransportClient::Message> received;
    bool connected = false; ///< What the handler was told last.
    bool outage = false;    ///< The handler has been told that messages were given up.
    bool withdrawn = false; ///< The endpoint has a request that nobody waits for any more.
    bool muted = false;     ///< The endpoint would not report a second failure.
    bool lost = false;
    bool stopping = false; ///< The mover ends.
    bool closing = false;  ///< The client ends.
    int callers = 0;
};
