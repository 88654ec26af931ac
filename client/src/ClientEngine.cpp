#include "ClientEngine.h"

#include "velk/VelkException.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <sys/eventfd.h>

class ClientEngine::Caller {
public:
    explicit Caller(ClientEngine& engine) : owner(engine), lock(engine.mutex) { ++owner.callers; }
    ~Caller()
    {
        --owner.callers;
        owner.changed.notify_all();
    }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    template <typename Condition> bool
    waitUntil(std::optional<CANTransportClient::Clock::time_point> deadline, Condition condition)
    {
        if (deadline) {
            return owner.changed.wait_until(lock, *deadline, condition);
        }
        owner.changed.wait(lock, condition);
        return true;
    }

private:
    ClientEngine& owner;
    std::unique_lock<std::mutex> lock; // released last
};

ClientEngine::ClientEngine(std::string busName, CANTransportClient::Options clientOptions)
    : bus(std::move(busName)),
      options(std::move(clientOptions)),
      wake(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    const int error = errno;
    constexpr std::uint32_t largestId = 0x7FF;
    VelkException exception;
    if (wake.get() == -1) {
        exception << "no event descriptor: " << std::strerror(error);
        throw exception;
    }
    if (options.sendId > largestId || options.receiveId > largestId) {
        exception << "got the ids " << options.sendId << " and " << options.receiveId
                  << ", expected ids up to " << largestId;
        throw exception;
    }
    startMoving();
}

ClientEngine::~ClientEngine()
{
    const std::lock_guard<std::mutex> order(lifecycle);
    {
        const std::lock_guard<std::mutex> lock(mutex);
        closing = true;
        changed.notify_all();
    }
    stopMoving();
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return callers == 0; });
}

ClientEngine::Result
ClientEngine::send(const Bytes& bytes,
                   std::optional<CANTransportClient::Clock::time_point> deadline)
{
    if (bytes.empty() || bytes.size() > CANTransportThread::MAX_MESSAGE_LENGTH) {
        VelkException error;
        error << "a message has 1 to " << CANTransportThread::MAX_MESSAGE_LENGTH << " bytes, not "
              << bytes.size();
        throw error;
    }
    Request request{bytes, std::nullopt};
    Caller caller(*this);
    if (lost || stopping) {
        return Result::givenUp;
    }
    waiting.push_back(&request);
    wakeUp();
    if (!caller.waitUntil(deadline, [&] { return request.result.has_value(); })) {
        giveUp(request);
    }
    return *request.result;
}

std::optional<CANTransportClient::Message> ClientEngine::receive(std::chrono::milliseconds timeout)
{
    constexpr std::chrono::hours forEver{24 * 365}; // a longer one may not fit the clock
    std::optional<CANTransportClient::Clock::time_point> deadline;
    if (timeout < forEver) {
        deadline = CANTransportClient::Clock::now() + timeout;
    }
    Caller caller(*this);
    caller.waitUntil(deadline, [this] { return !received.empty() || lost || closing; });
    if (received.empty()) {
        if (lost && !closing) { // its end loses the bus too
            throw CANTransportClient::BusLost(bus);
        }
        return std::nullopt;
    }
    const bool wasFull = received.size() >= options.queueLength;
    auto message = std::move(received.front());
    received.pop_front();
    if (wasFull) {
        wakeUp();
    }
    return message;
}

void ClientEngine::cancel()
{
    const std::lock_guard<std::mutex> lock(mutex);
    giveUpAll();
    wakeUp();
}

void ClientEngine::reconnect()
{
    const std::lock_guard<std::mutex> order(lifecycle);
    stopMoving();
    startMoving();
}

void ClientEngine::end(Request*& request, Result result)
{
    if (request != nullptr) {
        std::exchange(request, nullptr)->result = result;
        changed.notify_all();
    }
}

void ClientEngine::giveUp(Request& request)
{
    waiting.erase(std::remove(waiting.begin(), waiting.end(), &request), waiting.end());
    if (underWay == &request) {
        underWay = nullptr;
        withdrawn = true;
        wakeUp();
    }
    request.result = Result::givenUp;
}

void ClientEngine::giveUpAll()
{
    withdrawn = withdrawn || underWay != nullptr;
    end(underWay, Result::givenUp);
    for (Request* request : waiting) {
        end(request, Result::givenUp);
    }
    waiting.clear();
}

void ClientEngine::onStatus(Status status, unsigned short value)
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!note(status)) {
            return;
        }
    }
    if (options.statusHandler) {
        options.statusHandler(status, value);
    }
}

/// An endpoint that took the place of another begins anew; the handler must not hear of it.
bool ClientEngine::note(Status& status)
{
    switch (status) {
    case CANTransportThread::CTT_CONNECTED:
        outage = false;
        muted = false;
        return !std::exchange(connected, true);
    case CANTransportThread::CTT_ACKNOWLEDGED:
        end(underWay, Result::acknowledged);
        wakeUp();
        return true;
    case CANTransportThread::CTT_DISCONNECTED:
    case CANTransportThread::CTT_SEND_TIMEOUT:
        muted = true;
        end(underWay, Result::givenUp);
        wakeUp();
        status = std::exchange(connected, false) ? CANTransportThread::CTT_DISCONNECTED
                                                 : CANTransportThread::CTT_SEND_TIMEOUT;
        return !std::exchange(outage, true);
    case CANTransportThread::CTT_RECEIVE_TIMEOUT:
        return true;
    }
    return false;
}
