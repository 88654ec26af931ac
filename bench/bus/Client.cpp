// SPDX-License-Identifier: MIT
#include "velk/CANTransportClient.h"

#include "bus/Subject.h"
#include "common/Program.h"

namespace {

class Client : public Subject {
public:
    Client(const Carrier& carrier, Side side) : client(carrier.bus, optionsFor(carrier, side)) {}
    void send(std::size_t size) override
    {
        message.assign(size, 0x55);
        if (client.send(message) != CANTransportClient::SendResult::acknowledged) {
            Program::fail("a message is not acknowledged");
        }
    }
    void receive(std::size_t size) override
    {
        const auto received = client.receive(std::chrono::hours(1));
        if (!received || received->bytes.size() != size) {
            Program::fail("a message of another size arrived");
        }
    }

private:
    static CANTransportClient::Options optionsFor(const Carrier& carrier, Side side)
    {
        CANTransportClient::Options options;
        options.sendId = static_cast<std::uint16_t>(ownId(side));
        options.receiveId = peerId(side);
        options.gather = std::chrono::microseconds(carrier.gatherUs);
        return options;
    }

    CANTransportClient client;
    CANTransportClient::Bytes message;
};

} // namespace

std::unique_ptr<Subject> openClient(const Carrier& carrier, Subject::Side side)
{
    return std::make_unique<Client>(carrier, side);
}
