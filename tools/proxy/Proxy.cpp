#include "proxy/Proxy.h"

#include "common/Tool.h"
#include "proxy/ProxyExit.h"

#include "velk/VelkException.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <iterator>
#include <system_error>

#include <poll.h>
#include <sys/ioctl.h>

namespace {

// Whether the queue of an interface has room shows by sending alone: poll() calls a socket writable
// whose frame was refused for want of it.
constexpr std::chrono::microseconds shortestPause{200};
constexpr std::chrono::microseconds longestPause{2000};

/// How long the last frames of a client that has gone wait for a bus that takes none: they are of no use
/// to a peer that comes later, and the program would stay for ever where nobody acknowledges frames.
constexpr std::chrono::seconds patience{2};

constexpr int mostAtOnce = 100; ///< Frames that are sent before others are received.

std::optional<can_frame> frameOf(const MessageBase& message)
{
    const auto* const trace = dynamic_cast<const CANTraceMessageBase*>(&message);
    constexpr canid_t notOfData = CAN_RTR_FLAG | CAN_ERR_FLAG;
    if (trace == nullptr || trace->length > CAN_MAX_DLEN || (trace->canID & notOfData) != 0) {
        return std::nullopt;
    }
    can_frame frame{};
    frame.can_id = trace->canID > CAN_SFF_MASK ? trace->canID | CAN_EFF_FLAG : trace->canID;
    frame.can_dlc = trace->length;
    std::copy_n(trace->data, trace->length, frame.data);
    return frame;
}

timespec toTimespec(std::chrono::microseconds duration)
{
    return {0, static_cast<long>(std::chrono::nanoseconds(duration).count())};
}

bool inputHasHungUp()
{
    pollfd input{STDIN_FILENO, 0, 0};
    return poll(&input, 1, 0) == 1 && (input.revents & POLLHUP) != 0;
}

} // namespace

Proxy::Proxy(CANSocket& socket, const Signals& signalSource)
    : bus(socket),
      signals(signalSource),
      pause(shortestPause)
{
}

void Proxy::run()
{
    while (!stopped && !inputEnded) {
        handleEvents(sendFrames());
    }
    if (inputEnded && !input.empty()) {
        reject("a record that was cut off");
    }
}

/// @return when to go on; nothing if there is nothing left to send.
std::optional<Proxy::Pause> Proxy::sendFrames()
{
    for (int count = 0; count < mostAtOnce; ++count) {
        if (!unsent) {
            unsent = nextFrame();
        }
        if (!unsent) {
            return std::nullopt;
        }
        if (!bus.send(*unsent)) {
            ++waits;
            checkPatience();
            const Pause now = pause;
            pause = std::min(2 * pause, longestPause);
            return now;
        }
        unsent.reset();
        pause = shortestPause;
        refusedSince.reset();
        ++framesSent;
    }
    return Pause::zero();
}

void Proxy::checkPatience()
{
    const auto now = Clock::now();
    refusedSince = refusedSince.value_or(now);
    if (outputClosed && now - *refusedSince > patience) {
        throw Tool::Failure(proxyExitOutput, "the client has gone, and " + bus.name() +
                                                 " takes none of its last frames");
    }
}

std::optional<can_frame> Proxy::nextFrame()
{
    for (;;) {
        try {
            const auto message = input.getNextMessage();
            if (!message) {
                return std::nullopt;
            }
            if (const auto frame = frameOf(*message)) {
                return frame;
            }
            reject("a record that is no data frame of classic CAN");
        } catch (const VelkException& error) {
            reject(error.what());
        }
    }
}

void Proxy::reject(const std::string& reason)
{
    if (++unusable == 1) {
        std::cerr << proxyName << ": stdin: " << reason
                  << ", expected serialised CAN frames; the next ones are only counted"
                  << std::endl;
    }
}

void Proxy::handleEvents(std::optional<Pause> timeout)
{
    const bool mayReceive = output.isEmpty() && !outputClosed;
    const auto onlyIf = [](bool wanted, short events) { return wanted ? events : short{0}; };
    pollfd sources[] = {{signals.descriptor(), POLLIN, 0},
                        {timeout ? -1 : STDIN_FILENO, POLLIN, 0},
                        {outputClosed ? -1 : STDOUT_FILENO, onlyIf(!output.isEmpty(), POLLOUT), 0},
                        {bus.descriptor(), onlyIf(mayReceive, POLLIN), 0}};
    const timespec limit = toTimespec(timeout.value_or(Pause::zero()));
    if (ppoll(sources, std::size(sources), timeout ? &limit : nullptr, nullptr) == -1) {
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        return;
    }
    if (sources[0].revents != 0) {
        handleSignals();
    }
    if (sources[1].revents != 0) {
        handleInput();
    }
    if (sources[2].revents != 0) {
        handleOutput((sources[2].revents & (POLLERR | POLLHUP)) != 0);
    }
    if (sources[3].revents != 0) {
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

/// The buffer cannot tell the end of stdin from an empty one.
void Proxy::handleInput()
{
    int available = 0;
    inputEnded =
        ioctl(STDIN_FILENO, FIONREAD, &available) == -1 || available == 0 || input.read() == -1;
}

/// A client that has gone altogether has left by both ends: what it still wrote is sent.
void Proxy::handleOutput(bool broken)
{
    const int error = broken ? EPIPE : output.write();
    if (error == 0) {
        return;
    }
    if (!inputHasHungUp()) {
        throw Tool::Failure(proxyExitOutput,
                            std::string("stdout: ") + std::strerror(error) + ", expected a reader");
    }
    outputClosed = true;
    refusedSince.reset();
}

void Proxy::receiveFrames()
{
    for (int count = 0; count < RecordOutput::mostFrames; ++count) {
        const auto frame = bus.receive();
        if (!frame) {
            return;
        }
        output.add(*frame);
        ++framesReceived;
    }
}

void Proxy::printCounters() const
{
    std::cerr << proxyName << ": " << bus.name() << ": " << framesSent << " frames sent, "
              << framesReceived << " received, " << waits << " waits for the queue, "
              << bus.dropped() << " dropped by the kernel, " << unusable << " records unusable"
              << std::endl;
}
