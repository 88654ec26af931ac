// velk-vcan-exchange BUS: of each size that stands on stdin, a message goes from one client to
// another and comes back. If the bus is lost meanwhile, both reconnect, and the message starts again.

#include "velk/CANTransportClient.h"
#include "velk/LogUtil.h"

#include <chrono>
#include <iostream>
#include <mutex>
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

void tellOfTheLoss()
{
    const std::lock_guard<std::mutex> lock(LogUtil::logMutex);
    std::cout << "the bus is lost" << std::endl;
}

/// In turns: of two messages that cross, each may end the other.
bool goesBothWays(const Client::Bytes& message, const Client::Bytes& previous, Client& one,
                  Client& other)
{
    for (;;) {
        try {
            return goesThrough(message, previous, one, other) &&
                   goesThrough(message, previous, other, one);
        } catch (const Client::BusLost&) {
            tellOfTheLoss();
            std::this_thread::sleep_for(
                std::chrono::milliseconds(100)); // it may be down for longer
            one.reconnect();
            other.reconnect();
        }
    }
}

} // namespace

int main(int, char** arguments)
{
    Client one(arguments[1], optionsOf(0x123, 0x321));
    Client other(arguments[1], optionsOf(0x321, 0x123));
    Client::Bytes previous;
    for (std::size_t size = 0; std::cin >> size;) {
        const auto message = messageOf(size);
        if (!goesBothWays(message, previous, one, other)) {
            std::cerr << size << " bytes did not go through" << std::endl;
            return 1;
        }
        previous = message;
    }
    return 0;
}
