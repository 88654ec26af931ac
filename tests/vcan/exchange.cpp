// velk-vcan-exchange BUS STEP: two clients send each other messages of 1 to 4095 bytes, every
// STEP-th size, both at the same time.

#include "velk/CANTransportClient.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <numeric>
#include <optional>
#include <thread>

namespace {

using Client = CANTransportClient;

constexpr std::size_t longest = CANTransportThread::MAX_MESSAGE_LENGTH;

std::atomic<int> failures{0};

Client::Bytes messageOf(std::size_t size)
{
    Client::Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(size));
    return bytes;
}

void sendAll(Client& client, std::size_t step)
{
    for (std::size_t size = 1; size <= longest; size += step) {
        failures += client.send(messageOf(size)) == Client::SendResult::givenUp ? 1 : 0;
    }
}

void receiveAll(Client& client, std::size_t step)
{
    Client::Bytes expected;
    for (std::size_t size = 1; size <= longest; size += step) {
        std::optional<Client::Message> message;
        do {
            message = client.receive(std::chrono::minutes(10));
        } while (message && message->bytes == expected); // its acknowledgement was lost
        expected = messageOf(size);
        failures += message && message->bytes == expected ? 0 : 1;
    }
}

} // namespace

int main(int, char** arguments)
{
    const std::size_t step = std::strtoul(arguments[2], nullptr, 10);
    Client::Options options;
    options.sendId = 0x123;
    options.receiveId = 0x321;
    Client one(arguments[1], options);
    options.sendId = 0x321;
    options.receiveId = 0x123;
    Client other(arguments[1], options);
    std::thread threads[] = {std::thread(sendAll, std::ref(one), step),
                             std::thread(sendAll, std::ref(other), step),
                             std::thread(receiveAll, std::ref(one), step),
                             std::thread(receiveAll, std::ref(other), step)};
    for (auto& thread : threads) {
        thread.join();
    }
    return failures == 0 ? 0 : 1;
}
