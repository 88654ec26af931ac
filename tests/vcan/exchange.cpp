// SPDX-License-Identifier: MIT
// velk-vcan-exchange BUS: of each size that stands on stdin, a message goes from one client to
// another and comes back. If the bus is lost meanwhile, both reconnect, and the message starts again.

#include "velk/CANTransportClient.h"

#include <chrono>
#include <iostream>
#include <numeric>
#include <optional>
#include <thread>

namespace {

using Client = CANTransportClient;

Client::Options optionsOf(std::uint16_t sendId, std::uint32_t receiveId)
{
    Client::Options options;
    options.sendId = sendId;
    options.receiveId = receiveId;
    return options;
}

Client::Bytes messageOf(std::size_t size)
{
    Client::Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(size));
    return bytes;
}

/// @param previous what went this way last; it comes again where its acknowledgement was lost.
bool goesThrough(const Client::Bytes& message, const Client::Bytes& previous, Client& from,
                 Client& to)
{
    if (from.send(message) != Client::SendResult::acknowledged) {
        from.receive(std::chrono::milliseconds(0)); // throws if the bus is lost
        return false;
    }
    std::optional<Client::Message> received;
    do {
        received = to.receive(std::chrono::milliseconds::max());
    } while (received->bytes == previous);
    return received->bytes == message;
}

} // namespace

int main(int, char** arguments)
{
    Client one(arguments[1], optionsOf(0x123, 0x321));
    Client other(arguments[1], optionsOf(0x321, 0x123));
    Client::Bytes previous;
    std::size_t size = 0;
    for (bool again = false; again || std::cin >> size;) {
        again = false;
        const auto message = messageOf(size);
        try { // in turns: of two messages that cross, each may end the other
            if (!goesThrough(message, previous, one, other) ||
                !goesThrough(message, previous, other, one)) {
                std::cerr << size << " bytes did not go through" << std::endl;
                return 1;
            }
            previous = message;
        } catch (const Client::BusLost&) {
            again = true;
            std::cout << "the bus is lost" << std::endl;
            std::this_thread::sleep_for(
                std::chrono::milliseconds(100)); // it may be down for longer
            one.reconnect();
            other.reconnect();
        }
    }
    return 0;
}
