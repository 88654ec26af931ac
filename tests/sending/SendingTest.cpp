#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <numeric>
#include <sstream>

namespace {

using Access = CANTransportThreadAccess;

} // namespace

TEST(Sending, twentyBytesAreTheDocumentedFrames)
{
    LogCapture log;
    Endpoint endpoint;
    Bytes message(20);
    std::iota(message.begin(), message.end(), static_cast<unsigned char>(1));
    endpoint.request(message);
    EXPECT_EQ(endpoint.sent(), Lines{"10 14 01 02 03 04 05 06"});
    endpoint.flowControl(1);
    EXPECT_EQ(endpoint.sent(), (Lines{"20 07 08 09 0a 0b 0c 0d", "21 0e 0f 10 11 12 13 14"}));
    endpoint.flowControl(3);
    EXPECT_EQ(endpoint.statuses(), (Lines{"CTT_CONNECTED 0", "CTT_ACKNOWLEDGED 20"}));
}

TEST(Sending, whatDoesNotFitHasItsLine)
{
    struct {
        std::size_t size;
        std::vector<int> codes; ///< Of the answers; an expiry follows.
        std::string line;
    } const rows[] = {
        {4096, {}, "prepareData() message of 4096 bytes refused, at most 4095 can be sent"},
        {1,
         {3, 9},
         "checkFlowControl() received a flow control but has no sending state. 0x00000456 8  0x39 "
         "0x00 0x00 0x00 0x00 0x00 0x00 0x00"},
        {20,
         {1, 1},
         "checkFlowControl() got READY_TO_RECEIVE but have no data left that could be send."},
        {1, {1}, "processSendQueue() reached end of vector (2) - be confused :-/"},
        {20, {1, 4}, "processSendQueue() reached end of vector - be confused :-/"},
        {1,
         {0},
         "checkFlowControl() CTP_FC_NOT_ACKNOWLEDGE or CTP_FC_NOT_READY_TO_RECEIVE received [0]"},
    };
    for (const auto& row : rows) {
        LogCapture log;
        Endpoint endpoint;
        endpoint.request(pattern(row.size));
        for (const int code : row.codes) {
            endpoint.flowControl(code);
        }
        endpoint.expire();
        const std::string text = log.out();
        const std::string line = "[ERROR] CANTransportThread::" + row.line + "\n";
        EXPECT_NE(text.find(line), std::string::npos) << text;
    }
}

TEST(Sending, atRestAPhaseThatNoTimerCouldEndFallsBack)
{
    LogCapture log;
    Endpoint endpoint(1);
    endpoint.request({1});
    endpoint.framesOf(pattern(20), 0, 1);
    endpoint.flowControl(1);
    endpoint.clear(true);
    log.out();
    EXPECT_TRUE(Access::restIfIdle(endpoint));
    EXPECT_EQ(log.out(),
              "[DEBUG] CANTransportThread::threadCode() reception without a timer ended\n");
    EXPECT_TRUE(Access::restIfIdle(endpoint));
    EXPECT_EQ(log.out(), "");
    endpoint.framesOf(pattern(40));
    EXPECT_EQ(endpoint.delivered(), std::vector<Bytes>{pattern(40)});
}

TEST(Sending, theDelegateMayClearAndAsk)
{
    LogCapture log;
    Endpoint endpoint;
    bool emptyInside = true;
    std::function<void(CANTransportThread::statuschange_t, unsigned short)> listener =
        [&](CANTransportThread::statuschange_t status, unsigned short) {
            if (status == CANTransportThread::CTT_ACKNOWLEDGED) {
                endpoint.clear(false); // keeps the next message
                emptyInside = endpoint.sendQueueEmpty();
            }
        };
    endpoint.setDelegate(listener);
    endpoint.request({1});
    endpoint.request({2});
    endpoint.request({3});
    endpoint.flowControl(3);
    EXPECT_FALSE(emptyInside);
    endpoint.sent();
    endpoint.expire();
    EXPECT_EQ(endpoint.sent(), Lines{"01 02 00 00 00 00 00 00"});
    EXPECT_EQ(Access::snapshot(endpoint).queued, 1U);
}

TEST(Sending, aMessageClearedInThePauseOfARefusalCostsNoAttempt)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.frame({0x01, 1});
    endpoint.request({1});
    struct ClearAtTheLine : std::stringbuf {
        explicit ClearAtTheLine(Endpoint& cleared) : target(cleared) {}
        int sync() override
        {
            target.clear(true);
            return 0;
        }
        Endpoint& target;
    } sink(endpoint);
    std::streambuf* previous = std::cout.rdbuf(&sink);
    const auto before = std::chrono::steady_clock::now();
    endpoint.flowControl(2);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(10));
    std::cout.rdbuf(previous);
    EXPECT_EQ(Access::snapshot(endpoint).retries, 0);
}

TEST(Sending, aMessageIsSentFiveTimesInAllAndOneReportStandsForTheOutage)
{
    const std::string tag = "[INFO] CANTransportThread::handleSendError() ";
    for (const std::string status : {"CTT_SEND_TIMEOUT", "CTT_DISCONNECTED"}) {
        LogCapture log;
        Endpoint endpoint;
        if (status == "CTT_DISCONNECTED") {
            endpoint.flowControl(9);
        }
        log.out();
        endpoint.statuses();
        const auto sendInVain = [&] {
            endpoint.request(pattern(20));
            endpoint.request({2}); // dropped with the first, without a frame
            for (int i = 0; i < 5; ++i) {
                endpoint.expire();
            }
            EXPECT_EQ(endpoint.sent(), Lines(5, hex(cut(pattern(20))[0])));
        };
        sendInVain();
        std::string lines;
        for (const char retry : {'0', '1', '2', '3', '4'}) {
            lines += tag + "send retry = " + retry + "\n";
        }
        EXPECT_EQ(log.out(), lines + tag + status + "\n");
        EXPECT_EQ(endpoint.statuses(), Lines{status + " 0"});
        sendInVain(); // the outage lasts: no further report, and no line
        EXPECT_EQ(log.out(), "");
        EXPECT_EQ(endpoint.statuses(), Lines{});
        endpoint.flowControl(9);
        sendInVain();
        EXPECT_EQ(endpoint.statuses(), (Lines{"CTT_CONNECTED 0", "CTT_DISCONNECTED 0"}));
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
}
