// SPDX-License-Identifier: MIT
#include "velk/CANTransportClient.h"

#include "Mover.h"

#include <utility>

CANTransportClient::BusLost::BusLost(const std::string& bus)
    : std::runtime_error(bus + ": the bus is lost")
{
}

CANTransportClient::BusLost::~BusLost() = default;

/// What lives as long as the client, and the current connection.
class CANTransportClient::Core {
public:
    Core(std::string busName, Options clientOptions)
        : bus(std::move(busName)),
          options(std::move(clientOptions)),
          log(options.log, tally),
          queue(bus, options, wakeup, tally)
    {
        constexpr std::uint32_t largestId = 0x7FF;
        if (options.sendId > largestId || options.receiveId > largestId) {
            throwVelkException("got the ids ", options.sendId, " and ", options.receiveId,
                               ", expected ids up to ", largestId);
        }
        connect();
    }

    ~Core()
    {
        ending.emplace();
        queue.close();
        mover.reset();
    }
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    void reconnect()
    {
        const UncancellableScope whole;
        const std::lock_guard<std::mutex> order(lifecycle);
        queue.endAll(SendResult::cancelled);
        mover.reset();
        queue.endAll(SendResult::cancelled); // requests that came in between
        try {
            connect();
        } catch (const std::exception&) {
            queue.lose();
            throw;
        }
    }

    std::optional<UncancellableScope> ending; ///< The first member, so that it ends last.
    const std::string bus;
    const Options options;
    Tally tally;
    LogLimiter log;
    const Wakeup wakeup; ///< Wakes the mover.
    RequestQueue queue;

private:
    void connect()
    {
        auto link = openLink(bus, options.receiveId, tally);
        queue.open();
        mover = std::make_unique<Mover>(
            std::move(link), Mover::Surroundings{options, wakeup, queue, filter, log, tally});
    }

    StatusFilter filter;
    std::mutex lifecycle; ///< Serialises the calls of reconnect().
    std::unique_ptr<Mover> mover;
};

CANTransportClient::CANTransportClient(std::string bus, Options options)
    : core(std::make_unique<Core>(std::move(bus), std::move(options)))
{
}

CANTransportClient::~CANTransportClient() = default;

CANTransportClient::SendResult CANTransportClient::send(const Bytes& message)
{
    return core->queue.send(message, Clock::time_point::max());
}

CANTransportClient::SendResult CANTransportClient::send(const Bytes& message,
                                                        Clock::time_point deadline)
{
    return core->queue.send(message, deadline);
}

std::optional<CANTransportClient::Message>
CANTransportClient::receive(std::chrono::milliseconds timeout)
{
    return core->queue.receive(timeout);
}

void CANTransportClient::cancel() { core->queue.endAll(SendResult::cancelled); }

void CANTransportClient::reconnect() { core->reconnect(); }

int CANTransportClient::descriptor() { return core->queue.descriptor(); }

std::optional<CANTransportClient::Event> CANTransportClient::next() { return core->queue.next(); }

std::optional<CANTransportClient::Ticket> CANTransportClient::submit(Bytes message)
{
    return core->queue.submit(std::move(message), Clock::time_point::max());
}

std::optional<CANTransportClient::Ticket> CANTransportClient::submit(Bytes message,
                                                                     Clock::time_point deadline)
{
    return core->queue.submit(std::move(message), deadline);
}

CANTransportClient::Counters CANTransportClient::counters() const { return core->tally.values(); }
