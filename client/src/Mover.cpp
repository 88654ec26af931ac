#include "ClientEngine.h"

#include "velk/Millisleep.h"
#include "velk/VelkException.h"

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>

namespace {

/// Threads that start meanwhile inherit it: no signal of the program is theirs to take.
class AllSignalsBlocked {
public:
    AllSignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

private:
    sigset_t before{};
};

} // namespace

void ClientEngine::startMoving()
{
    const AllSignalsBlocked inherited;
    try {
        link = std::make_unique<BusLink>(bus, options.receiveId);
        frames = std::make_unique<TraceMessageBuffer>(link->descriptor(), nullptr);
        const std::lock_guard<std::mutex> lock(mutex);
        mover = std::thread(&ClientEngine::move, this);
        lost = stopping = false;
    } catch (const std::exception& error) {
        link.reset();
        const std::lock_guard<std::mutex> lock(mutex);
        lost = true;
        changed.notify_all();
        VelkException exception;
        exception << error.what();
        throw exception;
    }
}

void ClientEngine::stopMoving()
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
        giveUpAll();
        wakeUp();
    }
    if (mover.joinable()) {
        mover.join();
    }
}

void ClientEngine::move()
{
    bool ordered = false;
    try {
        startEndpoint();
        while (!ordered && waitForEvents()) {
            ordered = !takeOrders();
        }
        endEndpoint();
    } catch (const std::exception&) { // no memory or no descriptor for an endpoint
        if (endpoint) {
            endpoint->stop();
            endpoint.reset();
        }
    }
    {
        const std::lock_guard<std::mutex> lock(mutex);
        giveUpAll();
        lost = !ordered;
        changed.notify_all();
    }
    link.reset();
}

void ClientEngine::startEndpoint()
{
    endpoint = std::make_unique<CANTransportThread>(options.debugLevel);
    endpoint->setConnection(link->descriptor());
    endpoint->setSendCANid(options.sendId);
    std::function<void(Status, unsigned short)> delegate =
        [this](Status status, unsigned short value) { onStatus(status, value); };
    endpoint->setDelegate(delegate);
    endpoint->open(output, input);
    fcntl(output, F_SETFL, O_NONBLOCK);
    fcntl(input, F_SETFL, O_NONBLOCK);
    messages = std::make_unique<TraceMessageBuffer>(output, nullptr);
    pending.clear(); // its pipe must not begin within a record
    recordBegun = false;
    behindAStart = false;
    endpoint->start();
    const std::lock_guard<std::mutex> lock(mutex);
    withdrawn = muted = false;
}

/// Nothing that has come is lost with it, and what has been handed out is acknowledged.
void ClientEngine::endEndpoint()
{
    letEndpointFinish();
    endpoint->stop();
    int left = 0;
    do {
        messages->read();
        takeMessages(SIZE_MAX);
    } while (ioctl(output, FIONREAD, &left) == 0 && left > 0);
    messages.reset();
    endpoint.reset();
}

/// A stop could fall between a delivery and its acknowledgement. What comes when the endpoint has read
/// everything, it reads behind both: here the beginning of a record that never ends.
void ClientEngine::letEndpointFinish()
{
    int leftMs = 500; // it may stand in a write that nobody takes
    for (; recordBegun && leftMs > 0; --leftMs) {
        millisleep(1);
        feedEndpoint();
    }
    waitUntilRead(leftMs);
    if (!recordBegun && write(input, "\xA3", 1) == 1) {
        waitUntilRead(leftMs);
    }
}

void ClientEngine::waitUntilRead(int& leftMs) const
{
    int unread = 0;
    while (leftMs > 0 && ioctl(input, FIONREAD, &unread) == 0 && unread > 0) {
        millisleep(1);
        --leftMs;
    }
}

bool ClientEngine::takeOrders()
{
    bool fresh = false;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (stopping) {
            return false;
        }
        // Whoever gave a message up has no part in what becomes of it, and of what a muted endpoint
        // gives up nobody would hear. What the old one has delivered needs room first.
        fresh = hasRoom() && (withdrawn || (muted && !waiting.empty()));
    }
    if (fresh) {
        endEndpoint();
        startEndpoint();
    }
    handOver();
    return true;
}

void ClientEngine::handOver()
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (underWay == nullptr && !waiting.empty() && !withdrawn && !muted) {
        underWay = waiting.front();
        waiting.pop_front();
        CANTransportTraceMessage(underWay->message).createByteArray(pending, true, true);
    }
}

/// @return false at the end of the bus.
bool ClientEngine::waitForEvents()
{
    feedEndpoint();
    const bool room = takeMessages(options.queueLength);
    // An endpoint that is held up takes nothing, but the end of the bus has to be seen.
    const auto ofLink = static_cast<short>(POLLRDHUP | (pending.empty() ? POLLIN : 0));
    pollfd waits[] = {{wake.get(), POLLIN, 0},
                      {pending.empty() || !room ? link->descriptor() : -1, ofLink, 0},
                      {pending.empty() ? -1 : input, POLLOUT, 0},
                      {room ? output : -1, POLLIN, 0}};
    poll(waits, std::size(waits), -1);
    if (waits[0].revents != 0) {
        eventfd_t count = 0;
        eventfd_read(wake.get(), &count);
    }
    if (waits[3].revents != 0) {
        messages->read();
    }
    if ((waits[1].revents & (POLLHUP | POLLRDHUP | POLLERR)) != 0 && link->atEnd()) {
        return false;
    }
    return waits[1].revents == 0 || takeFrames();
}

/// A socket of packets gives one record for each read; those that wait are taken together.
bool ClientEngine::takeFrames()
{
    constexpr std::size_t enough = 32768;
    int left = 0;
    do {
        if (frames->read() == -1 && errno != ECONNRESET) { // behind a reset there may be packets
            return false;
        }
        parseFrames();
    } while (pending.size() < enough && ioctl(link->descriptor(), FIONREAD, &left) == 0 &&
             left > 0);
    return true;
}

void ClientEngine::parseFrames()
{
    try {
        while (const auto message = frames->getNextMessage()) {
            const auto* const frame = dynamic_cast<const CANTraceMessageBase*>(message.get());
            if (frame != nullptr && isForEndpoint(*frame)) {
                frame->createByteArray(pending, true, true);
            }
        }
    } catch (const VelkException&) { // bytes that are no frame
    }
}

/// The rest of a burst that the endpoint before this one had begun to receive is left out: a refusal of
/// each of its frames would use up all attempts of the peer at once.
bool ClientEngine::isForEndpoint(const CANTraceMessageBase& frame)
{
    constexpr std::uint8_t longest = 8;
    if (frame.canID != options.receiveId || frame.length > longest) {
        return false;
    }
    const int kind = frame.data[0] >> 4;
    behindAStart = behindAStart || kind == CANTransportThread::CTP_SINGLE_FRAME ||
                   kind == CANTransportThread::CTP_FIRST_FRAME;
    return behindAStart || kind != CANTransportThread::CTP_CONSECUTIVE_FRAME;
}

/// Frames and requests both go this way, so none gets into the middle of another.
void ClientEngine::feedEndpoint()
{
    if (!pending.empty()) {
        const ssize_t written = write(input, pending.data(), pending.size());
        if (written > 0) {
            pending.erase(pending.begin(), pending.begin() + written);
            recordBegun = !pending.empty();
        }
    }
}

/// Takes what the endpoint has delivered, while less than `most` messages wait.
/// @return whether there is room for more.
bool ClientEngine::takeMessages(std::size_t most)
{
    const std::lock_guard<std::mutex> lock(mutex);
    while (options.queueLength == 0 || received.size() < most) {
        const auto message = messages->getNextMessage();
        if (!message) {
            return true;
        }
        if (options.queueLength != 0) {
            auto& transport = static_cast<CANTransportTraceMessage&>(*message);
            received.push_back({transport.canID, std::move(transport.payload)});
            changed.notify_all();
        }
    }
    return false;
}

bool ClientEngine::hasRoom() const
{
    return options.queueLength == 0 || received.size() < options.queueLength;
}

void ClientEngine::wakeUp() const { eventfd_write(wake.get(), 1); }
