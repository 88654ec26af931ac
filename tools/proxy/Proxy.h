#pragma once

#include "proxy/CANSocket.h"
#include "proxy/RecordOutput.h"
#include "proxy/Signals.h"

#include "velk/TraceMessageBuffer.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include <linux/can.h>
#include <unistd.h>

/// Carries frames from stdin to the bus and from the bus to stdout. Neither road holds up the other:
/// a full queue of the interface stops the reading of stdin, a full stdout that of the bus.
class Proxy {
public:
    Proxy(CANSocket& socket, const Signals& signalSource);

    /// Until stdin is at its end and all is sent, or SIGINT or SIGTERM came. For a client that has gone
    /// by both ends it does not try for ever.
    /// @throws Tool::Failure
    void run();
    /// Prints on stderr, in one line, what was carried.
    void printCounters() const;

private:
    using Clock = std::chrono::steady_clock;
    using Pause = std::chrono::microseconds;

    std::optional<Pause> sendFrames();
    void checkPatience();
    std::optional<can_frame> nextFrame();
    void reject(const std::string& reason);
    void handleEvents(std::optional<Pause> timeout);
    void handleSignals();
    void handleInput();
    void handleOutput(bool broken);
    void receiveFrames();

    CANSocket& bus;
    const Signals& signals;
    TraceMessageBuffer input{STDIN_FILENO, nullptr};
    RecordOutput output{STDOUT_FILENO};
    std::optional<can_frame> unsent; ///< Refused by the full queue; goes before all others.
    Pause pause;
    std::optional<Clock::time_point> refusedSince; ///< Of `unsent`.
    bool inputEnded = false;                       ///< Seen only when nothing is left to send.
    bool outputClosed = false;
    bool stopped = false;

    std::uint64_t framesSent = 0;
    std::uint64_t framesReceived = 0;
    std::uint64_t waits = 0;
    std::uint64_t unusable = 0;
};
