#pragma once

#include "velk/CANTransportClient.h"
#include "velk/Descriptor.h"
#include "velk/TraceMessageBuffer.h"

#include "EndpointRun.h"
#include "LogLimiter.h"

#include <deque>
#include <optional>

/// An endpoint as the mover sees it: frames and requests go in; frames for the bus, status changes and
/// received messages come out. It runs on the mover's thread, inside run(), and never waits for anybody.
class EndpointPort {
public:
    using Bytes = CANTransportClient::Bytes;
    using Frame = CANTransportThread::TPCANMsg;
    using StatusChange = CANTransportClient::StatusChange;
    using Time = EndpointRun::Time;

    /// @throws VelkException if there are no descriptors for it.
    EndpointPort(const CANTransportClient::Options& options, LogLimiter& log);
    EndpointPort(const EndpointPort&) = delete;
    EndpointPort& operator=(const EndpointPort&) = delete;

    void addFrame(const Frame& frame);
    void addRequest(const Bytes& message);
    /// Lets the endpoint handle a portion of what was added, or its timer if that is due. Does nothing while
    /// something that came out has not been taken: so the endpoint's pipes never fill up, and its output
    /// has a bound. @return whether the endpoint has done something.
    bool run();
    /// @return whether the endpoint has not handled all that was added.
    bool isBehind() const { return used < added.size(); }
    /// @return when the endpoint's timer is due; Time::max() if none runs.
    Time wakeAt() const { return endpointRun->wakeAt(); }

    /// Frames for the bus, in their order. The other two are independent of them.
    std::optional<Frame> takeFrame();
    std::optional<StatusChange> takeStatus();
    std::optional<CANTransportClient::Message> takeMessage();

private:
    bool allTaken() const;
    void feed();
    void collect();

    /// Frames for the bus. A file in memory: a pipe could be full, and there is no other thread to empty it.
    const Descriptor output;
    CANTransportThread endpoint;
    int input = -1; ///< Owned by the endpoint, as the next one is.
    int messageEnd = -1;
    std::optional<EndpointRun> endpointRun;

    Bytes added; ///< Whole records; the endpoint has handled those before `used`.
    std::size_t used = 0;
    Bytes frames; ///< Whole records; those before `taken` are taken.
    std::size_t taken = 0;
    std::deque<StatusChange> changes;
    TraceMessageBuffer messages;
};
