#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using Access = CANTransportThreadAccess;
const std::string waiting = "RCTS_SENDING RCTS_WAIT_FOR_FC ";
const std::string tag = "[ERROR] CANTransportThread::";

std::string lineOf(int code)
{
    return " 0x00000456 8  0x3" + std::to_string(code) + " 0x00 0x00 0x00 0x00 0x00 0x00 0x00\n";
}

} // namespace

TEST(FlowControl, withoutAWaitItCostsALineAndChangesNothing)
{
    for (const int code : {0, 1, 2, 3, 9}) {
        LogCapture log;
        Endpoint endpoint;
        endpoint.frame({0x01, 1});
        endpoint.sent();
        log.out();
        endpoint.flowControl(code);
        EXPECT_EQ(log.out(),
                  tag + "checkFlowControl() received a flow control but has no sending state." +
                      lineOf(code));
        EXPECT_EQ(endpoint.sent(), Lines{});
        EXPECT_EQ(endpoint.stateText(), "RCTS_IDLE");
    }
}

TEST(FlowControl, atRestAPhaseThatNoTimerCouldEndFallsBack)
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

TEST(FlowControl, aRefusalCostsAnAttemptAndSendsTheMessageAgain)
{
    for (const int code : {0, 2}) {
        LogCapture log;
        Endpoint endpoint;
        endpoint.request(pattern(20));
        endpoint.flowControl(1);
        endpoint.sent();
        log.out();
        endpoint.flowControl(code);
        EXPECT_EQ(log.out(),
                  tag +
                      "checkFlowControl() CTP_FC_NOT_ACKNOWLEDGE or "
                      "CTP_FC_NOT_READY_TO_RECEIVE received [" +
                      std::to_string(code) +
                      "]\n[INFO] CANTransportThread::handleSendError() send retry = 0\n");
        EXPECT_EQ(endpoint.sent(), Lines{hex(cut(pattern(20))[0])});
        EXPECT_EQ(endpoint.stateText(), waiting);
        EXPECT_EQ(Access::retries(endpoint), 1);
    }
}

TEST(FlowControl, theDelegateMayClearAndAsk)
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
    EXPECT_EQ(Access::queued(endpoint), 1U);
    endpoint.sent();
    endpoint.expire();
    EXPECT_EQ(endpoint.sent(), Lines{"01 02 00 00 00 00 00 00"});
}

TEST(FlowControl, aMessageClearedInThePauseOfARefusalCostsNoAttempt)
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
    endpoint.flowControl(2);
    std::cout.rdbuf(previous);
    EXPECT_EQ(Access::retries(endpoint), 0);
    EXPECT_TRUE(endpoint.sendQueueEmpty());
}

TEST(FlowControl, answersThatDoNotFitHaveTheirLines)
{
    struct {
        std::size_t size;
        std::initializer_list<int> codes; ///< An expiry follows.
        std::string line;
    } const rows[] = {
        {20,
         {1, 1},
         "checkFlowControl() got READY_TO_RECEIVE but have no data left that could be send.\n"},
        {1, {1}, "processSendQueue() reached end of vector (2) - be confused :-/\n"},
        {1, {4}, "processSendQueue() reached end of vector (2) - be confused :-/\n"},
        {20, {1, 4}, "processSendQueue() reached end of vector - be confused :-/\n"},
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
        EXPECT_EQ(text.substr(text.find("[ERROR]"), tag.size() + row.line.size()), tag + row.line);
    }
}
