// SPDX-License-Identifier: MIT
#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <deque>
#include <future>
#include <random>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using Delegate = std::function<void(CANTransportThread::statuschange_t, unsigned short)>;

/// An endpoint and its client, who sends messages to the peer's client one by one. Unlike Endpoint it
/// has no memory and no descriptor but the library's.
struct Client : CANTransportThread {
    Client()
    {
        open(output, input);
        // The output holds a message and all its repeats while nobody reads. Of both together, a user
        // without privileges may have a thousand; further ones would get 8 KiB.
        fcntl(output, F_SETPIPE_SZ, 32768);
        fcntl(input, F_SETPIPE_SZ, 16384);
        sent = arrived = static_cast<unsigned int>(input); // no endpoint has another's messages
        Delegate listener = [this](auto status, auto) {
            setDebugLevel(0);
            sendQueueEmpty();
            if (status == CTT_ACKNOWLEDGED) {
                clear(false); // nothing waits after the only message
                ++acknowledged;
            }
            underWay -= status == CTT_CONNECTED || status == CTT_RECEIVE_TIMEOUT ? 0 : 1;
        };
        setDelegate(listener);
    }

    /// No byte of it stands at the same place in the message before.
    static Bytes message(unsigned int number)
    {
        constexpr unsigned int sizes[] = {1, 7, 8, 13, 14, 4095, 118, 119, 20, 300, 5};
        const Bytes bytes = pattern(number % 256 + sizes[number % std::size(sizes)]);
        return {bytes.begin() + number % 256, bytes.end()};
    }

    void send(bool again = false)
    {
        sent += again ? 0U : 1U;
        ++underWay;
        const Bytes bytes = bytesOf(CANTransportTraceMessage(message(sent)));
        EXPECT_NE(write(input, bytes.data(), bytes.size()), -1);
    }

    /// Returns when the message has come and its end is known. Has it ended before, it is sent again:
    /// a message ends acknowledged or reported; only a clear() ends it in silence.
    void awaitAt(const Client& peer, bool cleared = false)
    {
        bool ended = false;
        for (int looks = 0; !ended || arrived < sent; ++looks) {
            ended = underWay == 0 || (cleared && sendQueueEmpty());
            const unsigned int acknowledgedBefore = acknowledged;
            pollfd wait{peer.output, POLLIN, 0};
            if (poll(&wait, 1, arrived == sent && looks < 100 ? 0 : 1) == 1) {
                TraceMessageBuffer buffer(peer.output, nullptr); // each record came in one piece
                buffer.read();
                while (const auto record = buffer.getNextMessage()) {
                    const Bytes& bytes = dynamic_cast<CANTransportTraceMessage&>(*record).payload;
                    arrived += bytes == message(arrived) ? 0U : 1U; // the last one may come again
                    EXPECT_EQ(bytes, message(arrived));
                    ++delivered;
                }
            }
            EXPECT_LE(acknowledgedBefore, delivered);
            if (ended && arrived < sent) {
                send(true);
            }
        }
    }

    int output = -1;
    int input = -1;
    unsigned int sent;    ///< Number of the last message.
    unsigned int arrived; ///< Number of the last one at the peer's client.
    unsigned int delivered = 0;
    std::atomic<unsigned int> acknowledged{0};
    std::atomic<int> underWay{0};
};

/// Two endpoints with their threads. Each one's frames go straight into the other's input pipe.
struct RunningPair {
    RunningPair()
    {
        a.setConnection(b.input);
        b.setConnection(a.input);
        a.start();
        b.start();
    }
    ~RunningPair()
    {
        a.stop();
        b.stop();
    }

    Client a;
    Client b;
};

Bytes request(std::size_t size) { return bytesOf(CANTransportTraceMessage(pattern(size))); }

Bytes frame(std::uint8_t first, std::uint8_t second = 0)
{
    return recordOf({1, 8, {first, second}});
}

} // namespace

TEST(Threads, messagesPassWhileEightClientThreadsMeddle)
{
    LogCapture log;
    RunningPair pair;
    std::atomic<bool> clearIsDue{false};
    std::atomic<bool> done{false};
    const auto meddle = [&](Client* client) {
        for (int level = 0; !done; ++level) {
            client->clear(clearIsDue.exchange(false));
            client->setDebugLevel(level % 4);
            client->sendQueueEmpty();
            std::this_thread::yield();
        }
    };
    std::deque<std::future<void>> meddlers; // the destructor waits for them
    for (int i = 0; i < 8; ++i) {
        meddlers.push_back(std::async(std::launch::async, meddle, i % 2 == 0 ? &pair.a : &pair.b));
    }
    for (unsigned int i = 0; i < 10000 / VELK_TEST_SHARE; ++i) {
        Client& sender = i % 2 == 0 ? pair.a : pair.b;
        sender.send();
        clearIsDue = i % 500 == 0; // what it breaks off in the middle costs up to a second
        sender.awaitAt(i % 2 == 0 ? pair.b : pair.a, true);
        log.out(); // keeps it small
    }
    done = true;
}

TEST(Threads, stopAtAnyMomentLosesNoMessageAndLeavesNothingBehind)
{
    LogCapture log;
    std::thread([] {}).join(); // a sanitizer starts a thread of its own with the first
    const auto descriptors = countEntries("/proc/self/fd");
    const auto threads = countEntries("/proc/self/task");
    std::vector<std::thread> drivers; // many, for a message that was broken off waits for a second
    for (unsigned int seed = 0; seed < 100; ++seed) {
        drivers.emplace_back([seed] {
            RunningPair pair;
            std::mt19937 random(seed);
            for (unsigned int round = 0; round < 100 / VELK_TEST_SHARE; ++round) {
                pair.a.send();
                usleep(static_cast<useconds_t>(random() % 1000));
                Client& stopped = random() % 2 == 0 ? pair.a : pair.b;
                stopped.stop();
                stopped.start();
                pair.a.awaitAt(pair.b);
            }
        });
    }
    for (std::thread& driver : drivers) {
        driver.join();
    }
    EXPECT_EQ(countEntries("/proc/self/fd"), descriptors);
    for (int i = 0; countEntries("/proc/self/task") > threads && i < 10000; ++i) {
        millisleep(1); // the kernel takes its time behind a join
    }
    EXPECT_LE(countEntries("/proc/self/task"), threads);
}

TEST(Threads, stopGetsThroughWhereverTheThreadStandsAndStartGoesOn)
{
    enum { nothing, proxy, client };
    struct {
        Bytes first;      ///< This and what follows lead to the place.
        Bytes second;     ///< May be empty.
        const char* line; ///< The one before the place.
        int full = nothing;
        std::size_t room = 0; ///< Bytes that the full pipe still takes.
    } const rows[] = {
        {{}, {}, "timeout set to 0"},
        {request(1), {}, "state = RCTS_SENDING RCTS_WAIT_FOR_FC"},
        {request(1), frame(0x30), "NOT_READY_TO_RECEIVE received"},
        {frame(0x30), {}, "CTT_CONNECTED"},
        {bytesOf(CANTraceMessage(1, pattern(9).data(), 9)),
         {},
         "left by an exception: CANTraceMessageBase too long"},
        {request(20), frame(0x31), "[8] 20 ", proxy, 39}, // in the middle of an attempt
        {frame(0x10, 20), {}, "[8] 31 ", proxy},
        {frame(0x10, 7), frame(0x20), "checkConsecutiveFrame", client},
    };
    for (const auto& row : rows) {
        LogCapture log;
        Endpoint endpoint(3);
        bool whole = true;
        Delegate slow = [&](auto, auto) {
            whole = false;
            millisleep(20); // a cancellation point, but for the rule
            whole = true;
        };
        endpoint.setDelegate(slow);
        int(&pipe)[2] = row.full == client ? Access::output(endpoint) : endpoint.proxyPipe;
        Bytes filling(row.full == nothing ? 0 : 4096 - row.room);
        fcntl(pipe[1], F_SETPIPE_SZ, 4096);
        fcntl(pipe[1], F_SETFL, 0);
        write(pipe[1], filling.data(), filling.size());
        endpoint.write(row.first);
        if (row.room > 0) {
            endpoint.takeInput(); // what starts the timer
            Access::setTimeLeft(endpoint, 500000);
        }
        endpoint.write(row.second);
        endpoint.start();
        log.waitFor(row.line);
        endpoint.stop();
        // A refusal that is broken off would leave the message under way with no answer awaited.
        const auto stopped = Access::snapshot(endpoint);
        EXPECT_TRUE(whole && stopped.state != CANTransportThread::RCTS_SENDING) << row.line;
        EXPECT_TRUE(row.room == 0 || stopped.timerUs == 1000000) << "an attempt waits for a second";
        read(pipe[0], filling.data(), filling.size());
        endpoint.sent();
        log.out();
        endpoint.start();
        endpoint.write(request(1));
        log.waitFor(row.first == request(20) ? "[8] 10 14 " : "[8] 01 01 ");
        endpoint.write(frame(0x10, 7));
        endpoint.write(frame(0x20));
        log.waitFor("[8] 33 ");
        endpoint.stop();
        EXPECT_EQ(endpoint.delivered(), std::vector<Bytes>{Bytes(7)}) << row.line;
    }
}

TEST(Threads, aThousandEndpointsExchangeMessagesBothWaysAtOnce)
{
    constexpr unsigned int endpoints = 1000; // a set of 1024 descriptors is not enough
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 4 * endpoints + 100;
    if (setrlimit(RLIMIT_NOFILE, &limit) == -1) {
        GTEST_SKIP() << "the hard limit of descriptors is " << limit.rlim_max;
    }
    LogCapture log;
    std::deque<RunningPair> pairs(endpoints / 2);
    for (int round = 0; round < 5 / VELK_TEST_SHARE; ++round) {
        for (RunningPair& pair : pairs) {
            pair.a.send();
            pair.b.send();
        }
        for (RunningPair& pair : pairs) {
            pair.a.awaitAt(pair.b);
            pair.b.awaitAt(pair.a);
        }
    }
}
