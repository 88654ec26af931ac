// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"
#include "velk/LogUtil.h"
#include "velk/Millisleep.h"
#include "velk/VelkException.h"

#include "failures/Injection.h"
#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <iostream>
#include <optional>
#include <tuple>

#include <poll.h>

namespace {

using Status = CANTransportThread::statuschange_t;

/// Two endpoints, each one's frames straight into the other's input, and their clients. The clients
/// need no memory, so whatever fails is a call of the endpoints'.
class Pair {
public:
    explicit Pair(int debugLevel) : level(debugLevel) {}
    ~Pair() { end(); }

    bool begin()
    {
        try {
            std::function<void(Status, unsigned short)> deaf = [](Status, unsigned short) {};
            for (Side& side : sides) {
                side.endpoint.emplace(level);
                side.endpoint->open(side.output, side.input);
                side.endpoint->setDelegate(deaf);
            }
            for (int i = 0; i < 2; ++i) {
                sides[i].endpoint->setConnection(sides[1 - i].input);
                sides[i].endpoint->start();
            }
            return true;
        } catch (const std::exception&) {
            end();
            return false;
        }
    }

    /// Sends the message again until it has come, or until a call has failed.
    void transfer(int from, const Bytes& payload, const Bytes& request, bool untilHit)
    {
        Side& sender = sides[from];
        while (!hasCome(sides[1 - from], payload) && !(untilHit && Injection::hasHit())) {
            if (isEmpty(*sender.endpoint)) { // new, lost on its way or given up
                Injection::realWrite(sender.input, request.data(), request.size());
            }
        }
    }

private:
    struct Side {
        std::optional<CANTransportThread> endpoint;
        int output = -1;
        int input = -1;
    };

    static bool isEmpty(CANTransportThread& endpoint)
    {
        try {
            return endpoint.sendQueueEmpty();
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    static bool hasCome(const Side& side, const Bytes& payload)
    {
        static unsigned char bytes[65536]; // of whole records, each written at once
        pollfd wait{side.output, POLLIN, 0};
        if (poll(&wait, 1, 1) != 1) {
            return false;
        }
        const ssize_t count = Injection::realRead(side.output, bytes, sizeof bytes);
        const auto size = static_cast<ssize_t>(payload.size());
        return count >= size && std::equal(payload.begin(), payload.end(), bytes + count - size);
    }

    /// Returns if the threads can be stopped and have left no lock held.
    void end()
    {
        for (Side& side : sides) {
            if (side.endpoint) {
                side.endpoint->stop();
                side.endpoint->clear(true);
                isEmpty(*side.endpoint);
            }
        }
        LogUtil::logMutex.lock();
        LogUtil::logMutex.unlock();
        for (Side& side : sides) {
            side.endpoint.reset();
        }
    }

    Side sides[2];
    const int level;
};

const Bytes payloads[] = {pattern(20), pattern(300)};
const Bytes requests[] = {bytesOf(CANTransportTraceMessage(payloads[0])),
                          bytesOf(CANTransportTraceMessage(payloads[1]))};

/// The whole life of two endpoints. Once a failure is there to stay, no message is waited for.
void live(int level, bool always)
{
    Pair pair(level);
    const bool begun = pair.begin() || (!always && pair.begin());
    EXPECT_TRUE(begun || always) << "a failure that has passed does not pass";
    if (begun) {
        for (int from = 0; from < 2; ++from) {
            pair.transfer(from, payloads[from], requests[from], always);
        }
        if (always && Injection::hasHit()) {
            millisleep(25); // it fails repeatedly, also after the pause that follows an exception
        }
    }
}

/// Lets one call after the other fail until none is left.
void failInTurn(const char* call, bool always)
{
    const int level = std::string(call) == "allocation" ? 3 : 0; // text needs memory too
    long turn = 0;
    do {
        ++turn;
        const auto descriptors = countEntries("/proc/self/fd");
        const long blocks = Injection::blocksInUse();
        Injection::arm(call, turn, always);
        live(level, always);
        Injection::disarm();
        ASSERT_EQ(Injection::blocksInUse(), blocks) << "after a failure of call " << turn;
        ASSERT_EQ(countEntries("/proc/self/fd"), descriptors) << "after a failure of call " << turn;
    } while (Injection::hasHit());
    EXPECT_GT(turn, 1) << "no call has been made to fail";
}

void failEach(bool always)
{
    const FailingStreams streams; // a line that cannot be written is no failure of the endpoint
    for (const char* call :
         {"allocation", "pipe2", "fcntl", "select", "pselect", "read", "write", "pthread_create"}) {
        SCOPED_TRACE(call);
        failInTurn(call, always);
    }
}

} // namespace

TEST(AnyCall, failsOnceAndMessagesGoThrough) { failEach(false); }

TEST(AnyCall, failsForeverAndLeavesNothingBehind) { failEach(true); }

TEST(Open, failsOnceAndForAllAndKeepsNothing)
{
    const std::tuple<const char*, long, const char*> rows[] = {
        {"pipe2", 2, "failed to open pipe: \nerrno 24: Too many open files\n"},
        {"fcntl", 2, "failed to set pipe non-blocking: \nerrno 22: Invalid argument\n"},
    };
    for (const auto& [call, turn, line] : rows) {
        LogCapture log;
        const auto before = countEntries("/proc/self/fd");
        {
            CANTransportThread endpoint;
            int ends[2];
            std::cerr << std::hex; // may not change the number
            Injection::arm(call, turn, false);
            EXPECT_THROW(endpoint.open(ends[0], ends[1]), VelkException);
            Injection::disarm();
            std::cerr << std::dec;
            const auto held = countEntries("/proc/self/fd");
            EXPECT_THROW(endpoint.open(ends[0], ends[1]), VelkException);
            EXPECT_EQ(countEntries("/proc/self/fd"), held);
            EXPECT_THROW(endpoint.start(), VelkException);
            EXPECT_EQ(log.err(), std::string("[ERROR] CANTransportThread::open() ") + line);
        }
        EXPECT_EQ(countEntries("/proc/self/fd"), before) << call << ' ' << turn;
    }
}
