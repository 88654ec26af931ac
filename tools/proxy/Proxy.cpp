// SPDX-License-Identifier: MIT
#include "proxy/Proxy.h"

#include "velk/VelkException.h"

#include "common/FrameRecord.h"
#include "common/InputEnd.h"
#include "common/Tool.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <iterator>
#include <system_error>
#include <utility>

#include <poll.h>

namespace {

// Only send() shows whether the interface's queue has room: poll() reports a socket as writable even after it
// has refused a frame.
constexpr std::chrono::microseconds shortestPause{200};
constexpr std::chrono::microseconds longestPause{2000};

/// How long the proxy tries to send the last frames of a client that has gone. They are useless to a peer that
/// appears later, and on a bus where no node acknowledges frames the program would never end.
constexpr std::chrono::seconds patience{2};

constexpr std::size_t mostAtOnce = 100; ///< Frames that are sent before any is received.

timespec toTimespec(std::chrono::microseconds duration)
{
    return {0, static_cast<long>(std::chrono::nanoseconds(duration).count())};
}

void throwIfLost(const CANSocket& bus, CANSocket::Result result, const char* what)
{
    switch (result) {
    case CANSocket::Result::done:
    case CANSocket::Result::wouldBlock:
    case CANSocket::Result::queueFull:
        return;
    case CANSocket::Result::down:
        throw Tool::Failure(Tool::exitBus, bus.name() + ": the interface is down or gone");
    case CANSocket::Result::failed:
        throw Tool::Failure(Tool::exitFailed,
                            bus.name() + ": " + what + " (" + std::strerror(bus.error()) + ")");
    }
}

bool inputHasHungUp()
{
    pollfd input{STDIN_FILENO, 0, 0};
    return poll(&input, 1, 0) == 1 && (input.revents & POLLHUP) != 0;
}

} // namespace

Proxy::Proxy(CANSocket& socket, const Signals& signalSource, bool withGate)
    : bus(socket),
      signals(signalSource),
      pause(shortestPause)
{
    if (withGate) {
        gate.emplace();
    }
}

void Proxy::run()
{
    while (!stopped) {
        const Next next = sendFrames();
        if (inputEnded && !next.pause) { // nor does anything wait in the gate
            break;
        }
        handleEvents(next);
    }
    if (inputEnded && !input.empty()) {
        reject("a record that was cut off");
    }
}

Proxy::Next Proxy::sendFrames()
{
    if (gate) {
        return sendThroughGate();
    }
    takeInput();
    if (unsent.empty()) {
        return {};
    }
    std::size_t sent = 0;
    const auto result = bus.send(unsent.data() + sentOfThem, unsent.size() - sentOfThem, sent);
    sentOfThem += sent;
    noteProgress(sent);
    if (!isTaken(result)) {
        return {pauseAfterFullQueue(), false};
    }
    unsent.clear();
    sentOfThem = 0;
    return {Pause::zero(), true};
}

/// Takes frames from stdin when all those before are sent.
void Proxy::takeInput()
{
    while (sentOfThem == 0 && unsent.size() < mostAtOnce) {
        const auto frame = nextFromInput();
        if (!frame) {
            return;
        }
        unsent.push_back(CANSocket::toKernel(*frame));
    }
}

Proxy::Next Proxy::sendThroughGate()
{
    for (std::size_t count = 0; count < mostAtOnce; ++count) {
        const auto frame = nextThroughGate(Clock::now());
        if (!frame) {
            return waitForGate(Clock::now());
        }
        if (!isTaken(bus.send(*frame))) {
            return {pauseAfterFullQueue(), false};
        }
        gate->left(Clock::now());
        noteProgress(1);
    }
    return {Pause::zero(), true};
}

Proxy::Next Proxy::waitForGate(Clock::time_point now) const
{
    const auto wakeAt = gate->wakeAt(now);
    if (wakeAt == Clock::time_point::max()) {
        return {};
    }
    return {std::chrono::ceil<Pause>(wakeAt - now), !gate->full()};
}

/// @return false if the interface has no room now.
bool Proxy::isTaken(CANSocket::Result result)
{
    throwIfLost(bus, result, "cannot send");
    return result == CANSocket::Result::done;
}

void Proxy::noteProgress(std::size_t sent)
{
    framesSent += sent;
    if (sent > 0) {
        pause = shortestPause;
        refusedSince.reset();
    }
}

Proxy::Pause Proxy::pauseAfterFullQueue()
{
    ++waits;
    checkPatience();
    return std::exchange(pause, std::min(2 * pause, longestPause));
}

void Proxy::checkPatience()
{
    const auto now = Clock::now();
    refusedSince = refusedSince.value_or(now);
    if (outputClosed && now - *refusedSince > patience) {
        throw Tool::Failure(Tool::exitOutput, "the client has gone, and " + bus.name() +
                                                  " takes none of its last frames");
    }
}

std::optional<can_frame> Proxy::nextThroughGate(Clock::time_point now)
{
    while (!gate->full()) {
        const auto frame = nextFromInput();
        if (!frame) {
            break;
        }
        gate->fromEndpoint(*frame, now);
    }
    // An output that already has frames may have no room for another; it is written first.
    if (const auto answer = output.isEmpty() ? gate->released(now) : std::nullopt) {
        output.add(CANSocket::toKernel(*answer));
    }
    const CANTransportGate::Frame* const own = gate->next(now);
    if (own == nullptr) {
        return std::nullopt;
    }
    return CANSocket::toKernel(*own);
}

bool Proxy::passesGate(const can_frame& frame)
{
    if (!gate) {
        return true;
    }
    return gate->admit(CANSocket::fromKernel(frame), Clock::now());
}

std::optional<CANSocket::Frame> Proxy::nextFromInput()
{
    TraceRecord::View record;
    for (;;) {
        try {
            if (!input.getNextRecord(record)) {
                return std::nullopt;
            }
            if (const auto frame = FrameRecord::dataFrameIn(record)) {
                return frame;
            }
            reject("a record that is not a classic CAN data frame");
        } catch (const VelkException& error) {
            reject(error.what());
        }
    }
}

void Proxy::reject(const std::string& reason)
{
    if (++unusable == 1) {
        Tool::printError("velkcan-proxy: stdin: " + reason +
                         ", expected serialised CAN frames; further ones are only counted");
    }
}

void Proxy::handleEvents(const Next& next)
{
    const bool mayReceive = output.isEmpty() && !outputClosed;
    const auto onlyIf = [](bool condition, short events) { return condition ? events : short{0}; };
    pollfd sources[] = {{signals.descriptor(), POLLIN, 0},
                        {next.takesInput && !inputEnded ? STDIN_FILENO : -1, POLLIN, 0},
                        {outputClosed ? -1 : STDOUT_FILENO, onlyIf(!output.isEmpty(), POLLOUT), 0},
                        {bus.descriptor(), onlyIf(mayReceive, POLLIN), 0}};
    const auto& [ofSignals, ofInput, ofOutput, ofBus] = sources;
    const timespec limit = toTimespec(next.pause.value_or(Pause::zero()));
    if (ppoll(sources, std::size(sources), next.pause ? &limit : nullptr, nullptr) == -1) {
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        return;
    }
    if (ofSignals.revents != 0) {
        handleSignals();
    }
    if (ofInput.revents != 0) {
        handleInput();
    }
    if (ofOutput.revents != 0) {
        handleOutput((ofOutput.revents & (POLLERR | POLLHUP)) != 0);
    }
    if (ofBus.revents != 0) {
        receiveFrames();
    }
}

void Proxy::handleSignals()
{
    while (const int number = signals.next()) {
        if (number == SIGUSR1) {
            printCounters();
        } else {
            stopped = true;
        }
    }
}

void Proxy::handleInput()
{
    inputEnded = input.read() == -1 || (input.atEnd() && isEndOfInput(STDIN_FILENO));
}

/// If the client has also closed its end of stdin, it has gone: what it wrote before is still sent.
void Proxy::handleOutput(bool broken)
{
    const int error = broken ? EPIPE : output.write();
    if (error == 0) {
        return;
    }
    if (!inputHasHungUp()) {
        throw Tool::Failure(Tool::exitOutput,
                            std::string("stdout: ") + std::strerror(error) + ", expected a reader");
    }
    outputClosed = true;
    refusedSince.reset();
}

void Proxy::receiveFrames()
{
    received.clear();
    const CANSocket::Result result = bus.receive(received, RecordOutput::mostFrames);
    for (const can_frame& frame : received) {
        if ((frame.can_id & CAN_RTR_FLAG) != 0) { // an inverse filter passes them
            continue;
        }
        if (passesGate(frame)) {
            output.add(frame);
        }
        ++framesReceived;
    }
    throwIfLost(bus, result, "cannot receive");
}

void Proxy::printCounters() const
{
    std::cerr << "velkcan-proxy: " << bus.name() << ": " << framesSent << " frames sent, "
              << framesReceived << " received, " << waits << " waits for the queue, "
              << bus.missed() << " dropped by the kernel, " << unusable << " records unusable";
    if (gate) {
        const CANTransportGate::Counters dropped = gate->counters();
        std::cerr << ", dropped by the gate: "
                  << dropped.refusals + dropped.readies + dropped.acknowledgements +
                         dropped.unknownAnswers
                  << " answers of the peer, " << dropped.ownRefusals + dropped.ownFrames
                  << " own frames";
    }
    std::cerr << std::endl;
}
