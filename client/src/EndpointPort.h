// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportClient.h"

#include "LogLimiter.h"

#include <deque>
#include <optional>
#include <vector>

/// An endpoint as the mover sees it: frames and requests go in; frames for the bus, status changes and
/// received messages come out. It runs on the mover's thread, inside run(), and has no descriptors: a thread
/// of its own would have to be woken for each frame, and so would the mover.
class EndpointPort final : private CANTransportThread::Outlet {
public:
    using Bytes = CANTransportClient::Bytes;
    using Frame = CANTransportThread::TPCANMsg;
    using Message = CANTransportClient::Message;
    using StatusChange = CANTransportClient::StatusChange;
    using Time = CANTransportClient::Clock::time_point;

    EndpointPort(const CANTransportClient::Options& options, LogLimiter& log);
    ~EndpointPort() override = default;
    EndpointPort(const EndpointPort&) = delete;
    EndpointPort& operator=(const EndpointPort&) = delete;

    void addFrame(const Frame& frame) { fromBus.push_back(frame); }
    void addRequest(const Bytes& message) { request = message; }
    /// Lets the endpoint handle what was added, or its timer if that is due. Does nothing while something
    /// that came out has not been taken, so what comes out has a bound. Takes 10 ms for each refusal of the
    /// peer. @return whether the endpoint has done something.
    bool run();
    /// @return whether the endpoint has not handled what was added.
    bool isBehind() const { return !fromBus.empty() || request; }
    /// @return when the endpoint's timer is due; Time::max() if none runs.
    Time wakeAt() const { return deadline; }

    /// Frames for the bus, in their order. The other two are independent of them.
    std::optional<Frame> takeFrame();
    std::optional<StatusChange> takeStatus();
    std::optional<Message> takeMessage();

private:
    void onFrame(const Frame& frame) override { frames.push_back(frame); }
    void onMessage(unsigned short canID, const Bytes& bytes) override
    {
        messages.push_back({canID, bytes});
    }
    bool allTaken() const { return frames.empty() && changes.empty() && messages.empty(); }
    void handleInput();
    void handleFrame(Frame& frame);
    void endPass();

    CANTransportThread endpoint;
    Time deadline = Time::max();
    std::vector<Frame> fromBus;
    std::optional<Bytes> request;
    std::vector<Frame> frames;
    std::size_t taken = 0; ///< Of `frames`.
    std::deque<StatusChange> changes;
    std::deque<Message> messages;
};
