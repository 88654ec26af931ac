#include "velk/CANTransportClient.h"

#include "ClientEngine.h"

#include <utility>

CANTransportClient::BusLost::BusLost(const std::string& bus)
    : std::runtime_error(bus + ": the bus is lost")
{
}

CANTransportClient::BusLost::~BusLost() = default;

CANTransportClient::CANTransportClient(std::string bus, Options options)
    : engine(std::make_unique<ClientEngine>(std::move(bus), std::move(options)))
{
}

CANTransportClient::~CANTransportClient() = default;

CANTransportClient::SendResult CANTransportClient::send(const Bytes& message)
{
    return engine->send(message, std::nullopt);
}

CANTransportClient::SendResult CANTransportClient::send(const Bytes& message,
                                                        Clock::time_point deadline)
{
    return engine->send(message, deadline);
}

std::optional<CANTransportClient::Message>
CANTransportClient::receive(std::chrono::milliseconds timeout)
{
    return engine->receive(timeout);
}

void CANTransportClient::cancel() { engine->cancel(); }

void CANTransportClient::reconnect() { engine->reconnect(); }
