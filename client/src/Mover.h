// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportGate.h"

#include "EndpointPort.h"
#include "Gathering.h"
#include "Link.h"
#include "RequestQueue.h"
#include "Retrial.h"
#include "SendPace.h"
#include "StatusFilter.h"

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

/// The thread of a connected client: moves frames between the link and the endpoint, through the gate, and
/// messages between the endpoint and the queue of the callers. The endpoint has one message at a time, so
/// each outcome belongs to one message.
class Mover {
public:
    /// Objects that outlive a connection.
    struct Surroundings {
        const CANTransportClient::Options& options;
        const Wakeup& wakeup;
        RequestQueue& queue;
        StatusFilter& filter;
        LogLimiter& log;
        Tally& tally;
    };

    /// Starts the thread. @throws std::system_error on failure.
    Mover(std::unique_ptr<Link> openedLink, const Surroundings& outside);
    /// Ends the thread, after it has delivered all messages that the endpoint has acknowledged.
    ~Mover();
    Mover(const Mover&) = delete;
    Mover& operator=(const Mover&) = delete;

private:
    using Clock = CANTransportClient::Clock;
    using Frame = Link::Frame;

    /// Where the message is that the queue has handed over.
    enum class Stage {
        none,
        withEndpoint,
        abandoned, ///< With the endpoint, but withdrawn: its outcome must not end the next message.
        resting,   ///< Given up by the endpoint, which gets it again at `stageEnd`.
    };

    // Mover.cpp: the thread and its waits.
    void run();
    bool pass();
    bool wait();
    bool isOver() const;
    Clock::time_point nextEvent();
    void openPort();
    void drain();

    // MoverMessages.cpp
    void onStatus(CANTransportClient::StatusChange change);
    bool onGiveUp();
    void endStage(RequestQueue::Result result);
    void report(CANTransportClient::StatusChange change, bool peerAnswers);
    bool hasRoom();
    void takeMessages();
    void handOver();
    void giveToEndpoint();
    void abandonWithdrawn();

    // MoverFrames.cpp
    bool moveOut();
    bool takeFromEndpoint();
    bool sendToBus();
    bool takeFromBus();
    bool isForEndpoint(const Frame& frame);
    void countGate();
    void sendLastAnswers();

    const std::unique_ptr<Link> link;
    const Surroundings around;
    const std::uint64_t answersDroppedBefore; ///< Counts of earlier connections.
    const std::uint64_t framesDroppedBefore;

    // Used by the thread alone.
    std::optional<EndpointPort> port;
    CANTransportGate gate;
    std::optional<Retrial> retrial; ///< Of the message that was handed over last.
    Stage stage = Stage::none;
    RequestQueue::Bytes message; ///< The one in progress.
    /// When an abandoned message is dropped, or a resting one is handed over again.
    Clock::time_point stageEnd{};
    bool muted = false;      ///< The endpoint would not report another failure.
    bool startHeard = false; ///< The endpoint has received the start of a message.
    Clock::time_point now{}; ///< Of this pass.
    SendPace pace;
    Clock::time_point linkPause{}; ///< Nothing is sent before this time.
    Gathering gathering;
    Clock::time_point
        gatherEnd{}; ///< Nothing is read from the link before, except answers that are due.
    bool linkBlocked = false; ///< Wait until the link is writable.
    std::vector<Frame> fromBus;

    std::atomic<bool> stopping{false};
    std::thread thread; ///< Last, because it uses all members above.
};
