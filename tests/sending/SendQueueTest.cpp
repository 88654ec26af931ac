#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <numeric>

TEST(SendQueue, twentyBytesAreTheDocumentedFrames)
{
    Endpoint endpoint;
    Bytes message(20);
    std::iota(message.begin(), message.end(), static_cast<unsigned char>(1));
    endpoint.request(message);
    EXPECT_EQ(endpoint.sent(), Lines{"10 14 01 02 03 04 05 06"});
    endpoint.flowControl(1);
    EXPECT_EQ(endpoint.sent(), (Lines{"20 07 08 09 0a 0b 0c 0d", "21 0e 0f 10 11 12 13 14"}));
    endpoint.flowControl(3);
    EXPECT_EQ(endpoint.statuses().back(), "CTT_ACKNOWLEDGED 20");
}

TEST(SendQueue, theLastFrameOf4095BytesHasTheDocumentedForm)
{
    Endpoint endpoint;
    endpoint.request(Bytes(4095, 0xEE));
    EXPECT_EQ(endpoint.sent(), Lines{"1f ff ee ee ee ee ee ee"});
    endpoint.flowControl(1);
    const Lines burst = endpoint.sent();
    ASSERT_EQ(burst.size(), 585U);
    EXPECT_EQ(burst[16], "20 ee ee ee ee ee ee ee");
    EXPECT_EQ(burst.back(), "28 ee 00 00 00 00 00 00");
}

TEST(SendQueue, aMessageAboveTheLimitIsRefused)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.request(pattern(4096));
    EXPECT_EQ(log.out(),
              "[ERROR] CANTransportThread::prepareData() message of 4096 bytes refused, at most "
              "4095 can be sent\n");
    EXPECT_TRUE(endpoint.sendQueueEmpty());
    EXPECT_EQ(endpoint.stateText(), "RCTS_IDLE");
    endpoint.request({1});
    EXPECT_EQ(endpoint.sent().size(), 1U);
}

TEST(SendQueue, isEmptyOnlyWhenNothingIsQueuedAndNothingWaitsInThePipe)
{
    Endpoint endpoint;
    EXPECT_TRUE(endpoint.sendQueueEmpty());
    endpoint.write({1});
    EXPECT_FALSE(endpoint.sendQueueEmpty());
    LogCapture log;
    endpoint.request({1});
    EXPECT_FALSE(endpoint.sendQueueEmpty());
    endpoint.flowControl(3);
    EXPECT_TRUE(endpoint.sendQueueEmpty());
}
