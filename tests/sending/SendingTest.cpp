// SPDX-License-Identifier: MIT
#include "velk/Millisleep.h"

#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

TEST(Sending, anAnswerToAMessageThatIsClearedMeanwhileSendsAndReportsNothing)
{
    for (const int code : {1, 2, 3}) {
        LogCapture log;
        Endpoint endpoint(1);
        endpoint.request(pattern(20));
        endpoint.sent();
        std::future<void> answer;
        Access::clearAfter(endpoint, [&] {
            answer = std::async(std::launch::async, [&] { endpoint.flowControl(code); });
            while ((Access::state(endpoint) & CANTransportThread::RCTS_WAIT_FOR_FC) != 0) {
                std::this_thread::yield(); // until the answer has been found to be awaited
            }
        });
        answer.get();
        EXPECT_EQ(endpoint.sent(), Lines{});
        EXPECT_EQ(endpoint.statuses(), Lines{"CTT_CONNECTED 0"});
        const auto after = Access::snapshot(endpoint);
        EXPECT_EQ(after.state, CANTransportThread::RCTS_IDLE);
        EXPECT_EQ(after.timerUs, 1000000);
        EXPECT_EQ(after.retries, code == 2 ? 1 : 0) << "a refused attempt has failed all the same";
        const std::string line = "checkFlowControl() the message has been cleared meanwhile\n";
        EXPECT_EQ(log.out().find(line) == std::string::npos, code == 2);
    }
}

TEST(Sending, theQueueIsEmptyOnlyWhenNothingWaitsInThePipeEither)
{
    LogCapture log;
    Endpoint endpoint;
    EXPECT_TRUE(endpoint.sendQueueEmpty());
    endpoint.write({1});
    EXPECT_FALSE(endpoint.sendQueueEmpty());
    endpoint.request({1});
    EXPECT_FALSE(endpoint.sendQueueEmpty());
    endpoint.flowControl(3);
    EXPECT_TRUE(endpoint.sendQueueEmpty());
    endpoint.request({1});
    std::future<bool> isEmpty;
    Access::clearAfter(endpoint, [&] {
        isEmpty = std::async(std::launch::async, [&] { return endpoint.sendQueueEmpty(); });
        millisleep(2); // without the lock, it returns meanwhile
    });
    EXPECT_TRUE(isEmpty.get());
}
