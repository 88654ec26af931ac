#include "demo/DemoEndpoint.h"

#include <utility>

namespace {

constexpr std::uint32_t wholeId = 0x7FF;

} // namespace

DemoEndpoint::DemoEndpoint(VirtualBus& virtualBus, const WakeUp& wake, std::string endpointName,
                           std::uint16_t sendId, std::uint16_t hearId, int debugLevel)
    : bus(virtualBus),
      ownName(std::move(endpointName)),
      transport(debugLevel)
{
    std::function<void(Status, unsigned short)> delegate = [this, &wake](Status status,
                                                                         unsigned short) {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            statusChanges.push_back(status);
        }
        wake.notify();
    };
    transport.setDelegate(delegate);
    transport.setSendCANid(sendId);
    transport.open(output, input);
    attachment = bus.attach(input, {hearId, wholeId});
    transport.setConnection(attachment.proxyDescriptor);
    received.emplace(output, nullptr);
}

DemoEndpoint::~DemoEndpoint() { transport.stop(); }

void DemoEndpoint::send(const Bytes& message)
{
    Bytes record;
    CANTransportTraceMessage(message).createByteArray(record, true, false);
    ++requests;
    bus.request(attachment.node, std::move(record));
}

bool DemoEndpoint::seemsIdle(const NodeCounters& counters)
{
    return counters.requests == requests && transport.sendQueueEmpty();
}

std::vector<DemoEndpoint::Bytes> DemoEndpoint::receive()
{
    received->read();
    std::vector<Bytes> messages;
    while (const auto message = received->getNextMessage()) {
        if (const auto* whole = dynamic_cast<const CANTransportTraceMessage*>(message.get())) {
            messages.push_back(whole->payload);
        }
    }
    return messages;
}

std::vector<DemoEndpoint::Status> DemoEndpoint::takeStatusChanges()
{
    const std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(statusChanges, {});
}
