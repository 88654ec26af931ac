// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANSocket.h"
#include "velk/CANTransportGate.h"
#include "velk/TraceMessageBuffer.h"

#include "common/Signals.h"
#include "proxy/RecordOutput.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <linux/can.h>
#include <unistd.h>

/// Carries frames from stdin to the bus and from the bus to stdout. Neither direction blocks the other: if
/// the interface's queue is full, only stdin is not read; if stdout is full, only the bus is not read.
class Proxy {
public:
    Proxy(CANSocket& socket, const Signals& signalSource, bool withGate);

    /// Runs until stdin has ended and all frames are sent, or until SIGINT, SIGTERM or SIGHUP. When the client has
    /// closed both ends, the proxy tries to send its last frames for a limited time only.
    /// @throws Tool::Failure
    void run();
    /// Prints the counters on stderr, in one line.
    void printCounters() const;

private:
    using Clock = std::chrono::steady_clock;
    using Pause = std::chrono::microseconds;

    /// When to continue sending.
    struct Next {
        std::optional<Pause> pause; ///< None: when something arrives.
        bool takesInput = true;
    };

    Next sendFrames();
    Next sendThroughGate();
    Next waitForGate(Clock::time_point now) const;
    void takeInput();
    bool isTaken(CANSocket::Result result);
    void noteProgress(std::size_t sent);
    Pause pauseAfterFullQueue();
    void checkPatience();
    std::optional<can_frame> nextThroughGate(Clock::time_point now);
    std::optional<CANSocket::Frame> nextFromInput();
    bool passesGate(const can_frame& frame);
    void reject(const std::string& reason);
    void handleEvents(const Next& next);
    void handleSignals();
    void handleInput();
    void handleOutput(bool broken);
    void receiveFrames();

    CANSocket& bus;
    const Signals& signals;
    TraceMessageBuffer input{STDIN_FILENO, nullptr};
    RecordOutput output{STDOUT_FILENO};
    std::optional<CANTransportGate> gate;
    std::vector<can_frame> unsent; ///< Taken from stdin; empty with a gate, which keeps its frames.
    std::size_t sentOfThem = 0;    ///< How many of `unsent` were sent.
    std::vector<can_frame> received; ///< A member to reuse its memory.
    Pause pause;
    std::optional<Clock::time_point> refusedSince; ///< When the queue first refused the next frame.
    bool inputEnded = false;                       ///< What waits in the gate is still sent.
    bool outputClosed = false;
    bool stopped = false;

    std::uint64_t framesSent = 0;
    std::uint64_t framesReceived = 0;
    std::uint64_t waits = 0;
    std::uint64_t unusable = 0;
};
