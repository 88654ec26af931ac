#include "velk/CANTransportClient.h"

#include "tools/TemporaryBus.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <future>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Bytes = CANTransportClient::Bytes;
using Result = CANTransportClient::SendResult;
using Clock = CANTransportClient::Clock;
using namespace std::chrono_literals;

CANTransportClient::Options ids(std::uint16_t own, std::uint16_t peer)
{
    CANTransportClient::Options options;
    options.sendId = own;
    options.receiveId = peer;
    return options;
}

/// A bus with a client on each side.
struct Pair {
    TemporaryBus bus;
    CANTransportClient left{"unix:" + bus.path(), ids(1, 2)};
    CANTransportClient right{"unix:" + bus.path(), ids(2, 1)};
};

Bytes numbered(std::size_t size, std::size_t number)
{
    Bytes bytes(size, static_cast<unsigned char>(number >> 8U));
    bytes.at(0) = static_cast<unsigned char>(number);
    return bytes;
}

/// Until the task sleeps or has ended.
void waitUntilInside(pid_t task)
{
    std::string text;
    do {
        std::ifstream file("/proc/self/task/" + std::to_string(task) + "/stat");
        text.clear();
        std::getline(file, text);
    } while (text.find(") R") != std::string::npos);
}

} // namespace

TEST(Client, tellsOfEachMessageWhatBecameOfIt)
{
    Pair pair;
    const CANTransportClient stranger("unix:" + pair.bus.path(), ids(3, 4));
    for (const std::size_t size : {1U, 7U, 8U, 300U, 4095U}) {
        EXPECT_EQ(pair.left.send(numbered(size, size)), Result::acknowledged);
        const auto message = pair.right.receive(10s);
        ASSERT_TRUE(message);
        EXPECT_EQ(message->bytes, numbered(size, size));
        EXPECT_EQ(message->canID, 1U);
    }
    EXPECT_FALSE(pair.left.receive(1ms));
    EXPECT_THROW(pair.left.send({}), VelkException);
    EXPECT_THROW(pair.left.send(Bytes(4096)), VelkException);
}

TEST(Client, givesUpWithoutAPeerAgainAndAgainAndReportsOneOutage)
{
    const TemporaryBus bus;
    std::vector<CANTransportClient::Status> reports;
    auto options = ids(1, 2);
    options.statusHandler = [&](CANTransportClient::Status status, unsigned short) {
        reports.push_back(status);
    };
    {
        CANTransportClient client("unix:" + bus.path(), options);
        EXPECT_EQ(client.send({1}), Result::givenUp);
        EXPECT_EQ(client.send({2}), Result::givenUp) << "the endpoint reports no second failure";
        CANTransportClient peer("unix:" + bus.path(), ids(2, 1));
        EXPECT_EQ(client.send({3}), Result::acknowledged);
    }
    EXPECT_EQ(reports,
              (std::vector{CANTransportThread::CTT_SEND_TIMEOUT, CANTransportThread::CTT_CONNECTED,
                           CANTransportThread::CTT_ACKNOWLEDGED}));
}

TEST(Client, canWithdrawAMessageAndSendsTheNextOne)
{
    const TemporaryBus bus;
    CANTransportClient client("unix:" + bus.path(), ids(1, 2));
    EXPECT_EQ(client.send({1}, Clock::now() + 5ms), Result::givenUp);
    std::thread waiting([&] { EXPECT_EQ(client.send({2}), Result::givenUp); });
    while (bus.counters().carried < 2) {
        std::this_thread::yield();
    }
    client.cancel();
    waiting.join();
    CANTransportClient peer("unix:" + bus.path(), ids(2, 1));
    EXPECT_EQ(client.send({3}), Result::acknowledged);
    EXPECT_EQ(peer.receive(10s)->bytes, Bytes{3});
}

TEST(Client, seesTheLossOfTheBusAndReconnects)
{
    Pair pair;
    EXPECT_EQ(pair.left.send({1}), Result::acknowledged);
    pair.bus.kill();
    EXPECT_EQ(pair.left.send({2}), Result::givenUp);
    EXPECT_EQ(pair.right.receive(10s)->bytes, Bytes{1}) << "what had come is not lost";
    EXPECT_THROW(pair.right.receive(10s), CANTransportClient::BusLost);
    EXPECT_THROW(pair.left.reconnect(), VelkException);
    pair.bus.revive();
    pair.left.reconnect();
    pair.right.reconnect();
    EXPECT_EQ(pair.left.send({3}), Result::acknowledged);
}

TEST(Client, talksToACommandAndLeavesNoZombie)
{
    {
        CANTransportClient echo("exec:cat", ids(1, 1)); // hears itself, so it answers itself
        EXPECT_EQ(echo.send({1, 2, 3}), Result::acknowledged);
        EXPECT_EQ(echo.receive(10s)->bytes, (Bytes{1, 2, 3}));
        CANTransportClient gone("exec:true", ids(1, 1));
        EXPECT_THROW(gone.receive(10s), CANTransportClient::BusLost);
        const CANTransportClient stubborn("exec:trap '' TERM; exec sleep 1000", ids(1, 1));
    }
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
}

TEST(Client, losesItsProxyInTheMiddleOfABurstAndReconnects)
{
    CANTransportClient echo("exec:dd bs=39 count=100 status=none; kill -KILL $$",
                            ids(1, 1)); // so many frames
    EXPECT_EQ(echo.send(numbered(4095, 0)), Result::givenUp);
    EXPECT_THROW(echo.receive(10s), CANTransportClient::BusLost);
    echo.reconnect();
    EXPECT_EQ(echo.send({1}), Result::acknowledged);
}

TEST(Client, losesNothingWhileNobodyReads)
{
    constexpr std::size_t count = 60;
    const TemporaryBus bus;
    auto options = ids(2, 1);
    options.queueLength = 2;
    CANTransportClient lazy("unix:" + bus.path(), options);
    CANTransportClient sender("unix:" + bus.path(), ids(1, 2));
    std::thread sending([&] {
        for (std::size_t i = 0; i < count; ++i) { // more than the pipes hold
            while (sender.send(numbered(4000, i)) != Result::acknowledged) {
            }
        }
    });
    std::this_thread::sleep_for(500ms);
    std::size_t next = 0;
    Bytes last;
    while (next < count) {
        const auto message = lazy.receive(60s);
        ASSERT_TRUE(message);
        if (message->bytes != last) { // at least once: given up, it may still have come
            EXPECT_EQ(message->bytes, numbered(4000, next++));
            last = message->bytes;
        }
    }
    sending.join();
}

TEST(Client, givesUpAMessageWithoutHarmToThePeers)
{
    VirtualBus::Options slow;
    slow.bitrate = 125000; // the message takes more than a third of a second
    const TemporaryBus bus(slow);
    CANTransportClient client("unix:" + bus.path(), ids(1, 2));
    CANTransportClient peer("unix:" + bus.path(), ids(2, 1));
    std::thread sending([&] { EXPECT_EQ(peer.send(Bytes(2500)), Result::acknowledged); });
    while (bus.counters().carried < 100) {
        std::this_thread::yield();
    }
    EXPECT_EQ(client.send({1}, Clock::now() + 1ms), Result::givenUp); // breaks the reception off
    sending.join();
}

TEST(Client, losesTheBusForWantOfDescriptors)
{
    const TemporaryBus bus;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const int lowestFree = dup(0);
    close(lowestFree);
    const rlimit few{static_cast<rlim_t>(lowestFree) + 4,
                     limit.rlim_max}; // and an endpoint has four
    setrlimit(RLIMIT_NOFILE, &few);
    CANTransportClient client("unix:" + bus.path(), ids(1, 2));
    EXPECT_EQ(client.send({1}), Result::givenUp);
    EXPECT_THROW(client.receive(10s), CANTransportClient::BusLost);
    setrlimit(RLIMIT_NOFILE, &limit);
    client.reconnect();
    EXPECT_EQ(client.send({1}, Clock::now() + 1ms), Result::givenUp);
}

TEST(Client, bearsFourSendersAndTwoReceivers)
{
    constexpr unsigned int messages = 25; // of each sender, and for each receiver
    Pair pair;
    std::atomic<unsigned int> received{0};
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < 6; ++i) {
        threads.emplace_back([&, i] {
            for (unsigned int n = 0; n < messages; ++n) {
                if (i < 4) {
                    EXPECT_EQ(pair.left.send(numbered(100, i)), Result::acknowledged);
                } else {
                    received += pair.left.receive(60s) ? 1 : 0;
                }
            }
        });
    }
    for (unsigned int n = 0; n < 2 * messages; ++n) {
        EXPECT_EQ(pair.right.send(numbered(50, n)), Result::acknowledged);
    }
    std::map<unsigned int, unsigned int> counts;
    for (unsigned int n = 0; n < 4 * messages; ++n) {
        ++counts[pair.right.receive(60s)->bytes[0]];
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(received, 2 * messages);
    EXPECT_EQ(counts, (std::map<unsigned int, unsigned int>{
                          {0, messages}, {1, messages}, {2, messages}, {3, messages}}));
}

TEST(Client, endsAtAnyMomentWithAllItsThreads)
{
    for (unsigned int round = 0; round < 20; ++round) {
        Pair pair;
        auto client = std::make_unique<CANTransportClient>("unix:" + pair.bus.path(), ids(1, 2));
        CANTransportClient* const target = client.get();
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < 6; ++i) {
            std::promise<pid_t> entering;
            auto task = entering.get_future();
            threads.emplace_back([&entering, target, message = numbered(100, i), i] {
                entering.set_value(gettid());
                i < 4 ? void(target->send(message)) : void(target->receive(1h));
            });
            waitUntilInside(task.get());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(round));
        client.reset();
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
}
