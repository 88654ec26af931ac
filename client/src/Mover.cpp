#include "ClientEngine.h"

#include "velk/VelkException.h"

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
    {
        const std::lock_guard<std::mutex> lock(mutex);
        lost = true; // until the bus is reached
    }
    link = std::make_unique<BusLink>(bus, options.receiveId);
    frames = std::make_unique<TraceMessageBuffer>(link->descriptor(), nullptr);
    {
        const std::lock_guard<std::mutex> lock(mutex);
        lost = stopping = false;
    }
    mover = std::thread(&ClientEngine::move, this);
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
    try {
        startEndpoint();
        while (takeOrders() && waitForEvents()) {
        }
    } catch (const std::exception&) { // no memory or no descriptor for an endpoint
    }
    endEndpoint();
    {
        const std::lock_guard<std::mutex> lock(mutex);
        giveUpAll();
        lost = true;
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
    endpoint->start();
    const std::lock_guard<std::mutex> lock(mutex);
    withdrawn = muted = false;
}

/// Nothing that has come is lost with it.
void ClientEngine::endEndpoint()
{
    if (!endpoint) {
        return;
    }
    endpoint->stop();
    int left = 0;
    do {
        messages->read();
        takeMessages(SIZE_MAX);
    } while (ioctl(output, FIONREAD, &left) == 0 && left > 0);
    endpoint.reset();
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
        // gives up nobody would hear.
        fresh = withdrawn || (muted && !waiting.empty());
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
    if (underWay == nullptr && !waiting.empty() && !withdrawn) {
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
    pollfd waits[] = {{wake.get(), POLLIN, 0},
                      {pending.empty() ? link->descriptor() : -1, POLLIN | POLLRDHUP, 0},
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
        if (frames->read() == -1) {
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
            if (frame != nullptr && frame->canID == options.receiveId) {
                frame->createByteArray(pending, true, true);
            }
        }
    } catch (const VelkException&) { // bytes that are no frame
    }
}

/// Frames and requests both go this way, so none gets into the middle of another.
void ClientEngine::feedEndpoint()
{
    if (!pending.empty()) {
        const ssize_t written = write(input, pending.data(), pending.size());
        if (written > 0) {
            pending.erase(pending.begin(), pending.begin() + written);
        }
    }
}

/// Takes what the endpoint has delivered, while less than `most` messages wait.
/// @return whether there is room for more.
bool ClientEngine::takeMessages(std::size_t most)
{
    const std::lock_guard<std::mutex> lock(mutex);
    while (received.size() < most) {
        const auto message = messages->getNextMessage();
        if (!message) {
            return true;
        }
        auto& transport = static_cast<CANTransportTraceMessage&>(*message);
        received.push_back({transport.canID, std::move(transport.payload)});
        changed.notify_all();
    }
    return false;
}

void ClientEngine::wakeUp() const { eventfd_write(wake.get(), 1); }
