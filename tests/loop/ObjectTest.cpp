// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"
#include "velk/VelkException.h"

#include "support/Endpoint.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

TEST(CANTransportThread, openGivesTheClientItsTwoEnds)
{
    const auto before = countEntries("/proc/self/fd");
    {
        CANTransportThread endpoint;
        int reading = 0;
        int writing = 0;
        endpoint.getFileDescriptors(reading, writing);
        EXPECT_EQ(reading, -1);
        EXPECT_EQ(writing, -1);
        EXPECT_FALSE(endpoint.sendQueueEmpty());
        EXPECT_THROW(endpoint.start(), VelkException);
        endpoint.open(reading, writing);
        EXPECT_EQ(fcntl(reading, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDONLY);
        EXPECT_EQ(fcntl(writing, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_WRONLY);
        EXPECT_TRUE(endpoint.sendQueueEmpty());
        EXPECT_THROW(endpoint.open(reading, writing), VelkException);
        EXPECT_EQ(countEntries("/proc/self/fd"), before + 4);
    }
    EXPECT_EQ(countEntries("/proc/self/fd"), before);
}

TEST(CANTransportThread, itsPipesStayOutOfTheStandardStreamsAndOfOtherPrograms)
{
    const auto openWithoutStreams = [] {
        close(0);
        close(1);
        close(2);
        CANTransportThread endpoint;
        int ends[2];
        endpoint.open(ends[0], ends[1]);
        const auto& input = Access::input(endpoint);
        const auto& output = Access::output(endpoint);
        int wrong = 0;
        for (const int end : {input[0], input[1], output[0], output[1]}) {
            wrong += end > 2 && fcntl(end, F_GETFD) == FD_CLOEXEC ? 0 : 1;
        }
        _exit(wrong);
    };
    EXPECT_EXIT(openWithoutStreams(), testing::ExitedWithCode(0), "");
}
