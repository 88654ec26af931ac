#include "bus/VirtualBus.h"

#include "BusEndpoint.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <thread>
#include <vector>

namespace {

constexpr AcceptanceFilter nothing{0x7FF, 0x7FF};

std::vector<std::pair<std::uint32_t, int>> origins(const std::vector<CANFrame>& frames)
{
    std::vector<std::pair<std::uint32_t, int>> all;
    all.reserve(frames.size());
    for (const CANFrame& frame : frames) {
        all.emplace_back(frame.canID, frame.data[0]);
    }
    return all;
}

} // namespace

TEST(VirtualBus, carriesFramesInOneOrderToAllWhoseFilterAcceptsThem)
{
    constexpr std::uint8_t framesOfEach = 100;
    VirtualBus bus;
    std::vector<std::unique_ptr<BusEndpoint>> senders;
    for (std::uint32_t id = 0; id < 3; ++id) {
        senders.push_back(std::make_unique<BusEndpoint>(bus, AcceptanceFilter{id, 0x7FF}));
    }
    BusEndpoint one(bus);
    BusEndpoint other(bus);
    BusEndpoint picky(bus, {0x12, 0x0F}); // bits above the mask do not count
    bus.start();

    std::vector<std::thread> threads;
    for (std::uint32_t id = 0; id < 3; ++id) {
        threads.emplace_back([&sender = *senders[id], id] {
            for (std::uint8_t i = 0; i < framesOfEach; ++i) {
                sender.send(id, i);
            }
        });
    }
    const auto atOne = origins(one.receiveFrames(std::size_t{3} * framesOfEach));
    const auto atOther = origins(other.receiveFrames(std::size_t{3} * framesOfEach));
    const auto atPicky = origins(picky.receiveFrames(framesOfEach));
    for (std::thread& thread : threads) {
        thread.join();
    }
    bus.stop();

    EXPECT_EQ(atOne, atOther);
    std::map<std::uint32_t, int> next;
    for (const auto& [id, number] : atOne) {
        EXPECT_EQ(number, next[id]++);
    }
    EXPECT_EQ(atPicky.front().first, 2U);
    const auto counters = bus.counters();
    EXPECT_EQ(counters.nodes[picky.node()].delivered, framesOfEach);
    EXPECT_EQ(counters.nodes[senders[0]->node()].delivered, 0U) << "a sender heard itself";
}

TEST(VirtualBus, dropsForAFullQueueAloneAndTearsNoRecord)
{
    constexpr int sent = 500;
    VirtualBus::Options options;
    options.queueLength = 4;
    VirtualBus bus(options);
    BusEndpoint sender(bus, nothing);
    BusEndpoint sleeper(bus);
    BusEndpoint reader(bus);
    sleeper.shrinkPipe();
    bus.start();
    for (int i = 0; i < sent; ++i) {
        sender.send(1, static_cast<std::uint8_t>(i));
        reader.receiveFrames(1);
    }
    bus.stop();

    const auto counters = bus.counters();
    const NodeCounters& asleep = counters.nodes[sleeper.node()];
    EXPECT_EQ(counters.nodes[reader.node()].delivered, 500U);
    EXPECT_GT(asleep.delivered, 0U);
    EXPECT_EQ(asleep.delivered + asleep.overflowDrops + options.queueLength, 500U);
    EXPECT_EQ(counters.overflowDrops, asleep.overflowDrops);

    bus.start(); // what was queued follows once there is room
    const auto late = sleeper.receiveFrames(asleep.delivered + options.queueLength);
    for (std::size_t i = 0; i < late.size(); ++i) {
        EXPECT_EQ(late[i].data[0], i % 256);
    }
}

TEST(VirtualBus, mixesNoRequestWithFramesOrOtherRequests)
{
    constexpr int requestsOfEach = 20;
    constexpr int frames = 400;
    VirtualBus::Options options;
    options.queueLength = frames;
    VirtualBus bus(options);
    BusEndpoint sender(bus, nothing);
    BusEndpoint target(bus);
    target.shrinkPipe();
    bus.start();
    const auto requestAll = [&](unsigned char value, std::size_t length) {
        std::vector<unsigned char> record;
        CANTransportTraceMessage(std::vector<unsigned char>(length, value))
            .createByteArray(record, true, false);
        for (int i = 0; i < requestsOfEach; ++i) {
            bus.request(target.node(), record);
        }
    };
    std::thread client([&] { requestAll(1, 4095); });
    std::thread otherClient([&] { requestAll(2, 9000); });
    std::thread traffic([&] {
        for (int i = 0; i < frames; ++i) {
            sender.send(1, 0);
        }
    });

    std::map<std::size_t, int> requests; // by the length of what came out whole
    int framesHeard = 0;
    for (int i = 0; i < frames + 2 * requestsOfEach; ++i) {
        const auto record = target.receive(); // throws on a torn one
        if (const auto* request = dynamic_cast<CANTransportTraceMessage*>(record.get())) {
            const unsigned char value = request->payload.size() == 4095 ? 1 : 2;
            EXPECT_EQ(request->payload, std::vector<unsigned char>(request->payload.size(), value));
            ++requests[request->payload.size()];
        } else {
            ++framesHeard;
        }
    }
    client.join();
    otherClient.join();
    traffic.join();
    EXPECT_EQ(framesHeard, frames);
    EXPECT_EQ(requests,
              (std::map<std::size_t, int>{{4095, requestsOfEach}, {9000, requestsOfEach}}));
}

TEST(VirtualBus, goesOnWithoutAnEndpointThatHasGoneAndBehindBytesThatAreNoFrame)
{
    VirtualBus bus;
    BusEndpoint gone(bus);
    BusEndpoint sender(bus, nothing);
    BusEndpoint listener(bus);
    bus.start();
    gone.disappear();
    sender.sendBytes({1, 2, 3});
    sender.send(1, 7);
    sender.send(1, 8);
    EXPECT_EQ(listener.receiveFrames(2)[1].data[0], 8);
    bus.request(gone.node(), {0});
    bus.stop();
    EXPECT_TRUE(bus.counters().nodes[gone.node()].silent);
    EXPECT_EQ(bus.counters().unreadable, 1U);
    EXPECT_THROW(bus.request(3, {0}), VelkException);
}
