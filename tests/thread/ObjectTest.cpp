#include "velk/CANTransportThread.h"

#include "velk/VelkException.h"

#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <iostream>

#include <fcntl.h>
#include <sys/resource.h>
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
        endpoint.open(reading, writing);
        EXPECT_EQ(fcntl(reading, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDONLY);
        EXPECT_EQ(fcntl(writing, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_WRONLY);
        EXPECT_TRUE(endpoint.sendQueueEmpty());
        EXPECT_THROW(endpoint.open(reading, writing), VelkException);
        EXPECT_EQ(countEntries("/proc/self/fd"), before + 4);
    }
    EXPECT_EQ(countEntries("/proc/self/fd"), before);
}

TEST(CANTransportThread, openFailsWithALineWhenDescriptorsRunOut)
{
    LogCapture log;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const int lowestFree = dup(0);
    close(lowestFree);
    const rlimit roomForOnePipe{static_cast<rlim_t>(lowestFree) + 2, limit.rlim_max};
    CANTransportThread endpoint;
    int reading = 0;
    int writing = 0;
    setrlimit(RLIMIT_NOFILE, &roomForOnePipe);
    std::cerr << std::hex; // may not change the number
    EXPECT_THROW(endpoint.open(reading, writing), VelkException);
    std::cerr << std::dec;
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(log.err(), "[ERROR] CANTransportThread::open() failed to open pipe: \n"
                         "errno 24: Too many open files\n");
}
