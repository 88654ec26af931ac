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

TEST(Sending, aMessageClearedInThePauseOfARefusalCountsAsARefusedOne)
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
    EXPECT_EQ(Access::snapshot(endpoint).retries, 1);
    EXPECT_EQ(endpoint.sent(), (Lines{fc(3), "01 01 00 00 00 00 00 00"})) << "sent again";
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
