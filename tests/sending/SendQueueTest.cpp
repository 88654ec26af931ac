#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

namespace {

using Access = CANTransportThreadAccess;

Lines framesOf(const Bytes& message)
{
    Lines frames;
    for (const auto& frame : cut(message)) {
        frames.push_back(hex(frame));
    }
    return frames;
}

} // namespace

TEST(SendQueue, messagesOfEverySizeAreCutIntoTheirFrames)
{
    for (const std::size_t size : {0U, 1U, 7U, 8U, 13U, 14U, 118U, 119U, 300U, 4095U}) {
        LogCapture log;
        Endpoint endpoint;
        endpoint.request(pattern(size));
        Lines frames = endpoint.sent();
        EXPECT_EQ(frames.size(), 1U);
        EXPECT_EQ(endpoint.stateText(), "RCTS_SENDING RCTS_WAIT_FOR_FC ");
        EXPECT_EQ(endpoint.timerMs(), 1000);
        if (size > 7) {
            endpoint.flowControl(1);
            for (const std::string& frame : endpoint.sent()) {
                frames.push_back(frame);
            }
        }
        EXPECT_EQ(frames, framesOf(pattern(size))) << size;
        EXPECT_EQ(endpoint.stateText(), "RCTS_SENDING RCTS_WAIT_FOR_FC ");
    }
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

TEST(SendQueue, whatWaitsStartsWithTheExpiryBehindAnAcknowledgement)
{
    Endpoint endpoint;
    endpoint.request({1});
    Access::timeLeft(endpoint) = {0, 300000};
    endpoint.request({2});
    EXPECT_EQ(endpoint.timerMs(), 300);
    endpoint.setSendCANid(0x7FF); // does not reach what is cut already
    EXPECT_EQ(endpoint.sent().size(), 1U);
    endpoint.flowControl(3);
    EXPECT_EQ(endpoint.timerMs(), 10);
    EXPECT_EQ(endpoint.sent(), Lines{});
    EXPECT_FALSE(Access::restIfIdle(endpoint));
    endpoint.expire();
    EXPECT_EQ(endpoint.sent(), Lines{"01 02 00 00 00 00 00 00"});
    EXPECT_EQ(endpoint.timerMs(), 1000);
}

TEST(SendQueue, aRequestDuringAReceptionWaits)
{
    Endpoint endpoint;
    endpoint.framesOf(pattern(20), 0, 2);
    endpoint.request({1});
    EXPECT_EQ(endpoint.sent(), Lines{fc(1)});
    endpoint.framesOf(pattern(20), 2);
    EXPECT_EQ(endpoint.sent(), Lines{fc(3)});
    endpoint.expire();
    EXPECT_EQ(endpoint.sent(), Lines{"01 01 00 00 00 00 00 00"});
}

TEST(SendQueue, clearRemovesWhatItsTableSays)
{
    struct {
        bool started;
        bool includeCurrent;
        std::size_t left;
        const char* state;
    } const rows[] = {
        {false, false, 0, "RCTS_RECEIVING "},
        {false, true, 0, "RCTS_RECEIVING "},
        {true, true, 0, "RCTS_RECEIVING "},
        {true, false, 1, "RCTS_SENDING RCTS_RECEIVING RCTS_WAIT_FOR_FC "},
    };
    for (const auto& row : rows) {
        LogCapture log;
        Endpoint endpoint;
        if (row.started) {
            endpoint.request({1});
            endpoint.framesOf(pattern(20), 0, 1);
        } else {
            endpoint.framesOf(pattern(20), 0, 1);
            endpoint.request({1});
        }
        endpoint.request({2});
        endpoint.request({3});
        endpoint.setDebugLevel(1);
        log.out();
        endpoint.clear(row.includeCurrent);
        EXPECT_EQ(log.out(),
                  "[DEBUG] CANTransportThread::clear() state = " + std::string(row.state) + "\n");
        EXPECT_EQ(Access::queued(endpoint), row.left);
        EXPECT_EQ(endpoint.stateText(), row.state);
    }
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
