#pragma once

#include "velk/CANTransportGate.h"

#include "EndpointPort.h"
#include "Gathering.h"
#include "Link.h"
#include "RequestQueue.h"
#include "Retrial.h"
#include "StatusFilter.h"

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

/// The thread of a connected client: moves frames between the link and the endpoint, through the gate, and
/// messages between the endpoint and those who wait for them. One message at a time is with the endpoint, so
/// that each outcome belongs to one message.
class Mover {
public:
    /// What outlives a connection.
    struct Surroundings {
        const CANTransportClient::Options& options;
        const Wakeup& wakeup;
        RequestQueue& queue;
        StatusFilter& filter;
        LogLimiter& log;
        Tally& tally;
    };

    /// Starts the thread. @throws VelkException, std::system_error if there is none.
    Mover(std::unique_ptr<Link> openedLink, const Surroundings& outside);
    /// Ends it. What the endpoint has acknowledged to the peer is delivered before.
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
        abandoned, ///< With the endpoint, but nobody waits for it: its outcome may not end the next one.
        resting, ///< With nobody: it is handed to the endpoint again.
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
    void takeMessages();
    void handOver();
    void giveToEndpoint();
    void abandonWithdrawn();

    // MoverFrames.cpp
    bool takeFromEndpoint();
    bool sendToBus();
    bool takeFromBus();
    bool isForEndpoint(const Frame& frame);
    void countGate();
    void sendLastAnswers();

    const std::unique_ptr<Link> link;
    const Surroundings around;
    const std::uint64_t answersDroppedBefore; ///< By the gates of earlier connections.
    const std::uint64_t framesDroppedBefore;

    // Used by the thread alone.
    std::unique_ptr<EndpointPort> port;
    CANTransportGate gate;
    std::optional<Retrial> retrial; ///< Of the message that was handed over last.
    Stage stage = Stage::none;
    RequestQueue::Bytes message; ///< The one in progress.
    Clock::time_point
        stageEnd{};          ///< When an abandoned message is forgotten, or a resting one goes on.
    bool muted = false;      ///< The endpoint would not report that it gives up once more.
    bool startHeard = false; ///< The endpoint has got the first frame of some message.
    Clock::time_point now{}; ///< Of this pass.
    Clock::time_point linkPause{}; ///< A full queue of the interface is tried again then.
    Gathering gathering;
    Clock::time_point gatherEnd{}; ///< Nothing is taken from the link before.
    bool linkBlocked = false;      ///< The link is waited for.
    std::vector<Frame> fromBus;

    std::atomic<bool> stopping{false};
    std::thread thread; ///< Last: it uses all above.
};
