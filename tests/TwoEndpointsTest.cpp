#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <poll.h>
#include <unistd.h>

namespace {

using Status = CANTransportThread::statuschange_t;

/// Two endpoints with their threads. Each one's frames go straight into the other's input pipe.
class Peers {
public:
    Peers()
    {
        a.endpoint.setConnection(b.endpoint.inputEnd);
        b.endpoint.setConnection(a.endpoint.inputEnd);
        a.endpoint.start();
        b.endpoint.start();
    }
    ~Peers()
    {
        a.endpoint.stop();
        b.endpoint.stop();
    }
    Peers(const Peers&) = delete;
    Peers& operator=(const Peers&) = delete;

    struct Side {
        Side()
        {
            std::function<void(Status, unsigned short)> listener = [this](Status status,
                                                                          unsigned short) {
                if (status == CANTransportThread::CTT_ACKNOWLEDGED) {
                    const std::lock_guard<std::mutex> lock(mutex);
                    ++acknowledged;
                    changed.notify_all();
                }
            };
            endpoint.setDelegate(listener);
        }

        /// Sends messages one by one, each until it is acknowledged.
        void sendAll(const std::vector<Bytes>& messages)
        {
            for (std::size_t i = 0; i < messages.size(); ++i) {
                std::unique_lock<std::mutex> lock(mutex);
                while (acknowledged <= i) {
                    if (endpoint.sendQueueEmpty()) { // new, or given up
                        endpoint.write(bytesOf(CANTransportTraceMessage(messages[i])));
                    }
                    changed.wait_for(lock, std::chrono::milliseconds(200));
                }
            }
        }

        /// Takes messages until `last` has come. Repeats stand next to each other and are left out.
        std::vector<Bytes> receiveUpTo(const Bytes& last)
        {
            std::vector<Bytes> messages;
            while (messages.empty() || messages.back() != last) {
                pollfd wait{endpoint.outputEnd, POLLIN, 0};
                poll(&wait, 1, -1);
                for (Bytes& message : endpoint.delivered()) {
                    if (messages.empty() || message != messages.back()) {
                        messages.push_back(std::move(message));
                    }
                }
            }
            return messages;
        }

        Endpoint endpoint;
        std::mutex mutex;
        std::condition_variable changed;
        std::size_t acknowledged = 0;
    };

    LogCapture log;
    Side a;
    Side b;
};

std::vector<Bytes> messagesOf(std::initializer_list<std::size_t> sizes)
{
    std::vector<Bytes> messages;
    for (const std::size_t size : sizes) {
        messages.push_back(pattern(size));
    }
    return messages;
}

} // namespace

TEST(TwoEndpoints, threadsExchangeMessagesOfAllSizesBothWaysAtOnce)
{
    const auto there = messagesOf({1, 7, 8, 13, 14, 118, 119, 300, 4095});
    const auto back = messagesOf({4095, 300, 119, 118, 14, 13, 8, 7, 1});
    Peers peers;
    std::thread sendA([&] { peers.a.sendAll(there); });
    std::thread sendB([&] { peers.b.sendAll(back); });
    std::thread receiveA([&] { EXPECT_EQ(peers.a.receiveUpTo(back.back()), back); });
    EXPECT_EQ(peers.b.receiveUpTo(there.back()), there);
    sendA.join();
    sendB.join();
    receiveA.join();
}

TEST(TwoEndpoints, clientThreadsMayClearAskAndSetTheLevelMeanwhile)
{
    std::vector<Bytes> messages;
    for (unsigned char i = 0; i < 50; ++i) {
        messages.emplace_back(i % 2 == 0 ? 100 : 5, i);
    }
    Peers peers;
    std::atomic<bool> done{false};
    std::thread meddler([&] {
        for (int i = 0; !done; ++i) {
            peers.a.endpoint.clear(i % 5000 == 0);
            peers.a.endpoint.setDebugLevel(i % 4 == 0 ? 3 : 0);
            peers.a.endpoint.sendQueueEmpty();
            std::this_thread::yield();
        }
    });
    std::thread sender([&] { peers.a.sendAll(messages); });
    EXPECT_EQ(peers.b.receiveUpTo(messages.back()), messages);
    sender.join();
    done = true;
    meddler.join();
}

TEST(TwoEndpoints, stopAtAnyMomentOfATransferAndStartGoOn)
{
    const auto messages = messagesOf({4095, 500, 3, 4000, 20, 4090});
    Peers peers;
    std::thread switcher([&] {
        for (unsigned int round = 0; round < 200; ++round) {
            CANTransportThread& endpoint = round % 2 == 0 ? peers.a.endpoint : peers.b.endpoint;
            endpoint.stop();
            endpoint.start();
            std::this_thread::sleep_for(std::chrono::microseconds(round * 37 % 3000));
        }
    });
    std::thread sender([&] { peers.a.sendAll(messages); });
    EXPECT_EQ(peers.b.receiveUpTo(messages.back()), messages);
    sender.join();
    switcher.join();
}
