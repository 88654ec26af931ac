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

TEST(FlowControl, anAcknowledgementEndsTheMessageWhereverItStands)
{
    struct {
        Bytes message;
        bool afterBurst;
        int reported;
    } const rows[] = {
        {{0x41, 0x42}, false, 0x41}, {{}, false, 0},           {Bytes(300, 1), false, 0x2C},
        {Bytes(300, 1), true, 0x2C}, {Bytes(256, 1), true, 0},
    };
    for (const auto& row : rows) {
        LogCapture log;
        Endpoint endpoint;
        endpoint.request(row.message);
        if (row.afterBurst) {
            endpoint.flowControl(1);
        }
        endpoint.setDebugLevel(2);
        log.out();
        endpoint.statuses();
        endpoint.flowControl(3);
        EXPECT_EQ(endpoint.statuses().back(), "CTT_ACKNOWLEDGED " + std::to_string(row.reported));
        EXPECT_TRUE(endpoint.sendQueueEmpty());
        EXPECT_EQ(endpoint.stateText(), "RCTS_IDLE");
        EXPECT_EQ(endpoint.timerMs(), 10);
        const std::string text = log.out();
        const std::string debug = "[DEBUG] CANTransportThread::";
        EXPECT_EQ(text.substr(text.find(debug + "checkFlowControl")),
                  debug + "checkFlowControl() " + lineOf(3) + debug +
                      "checkFlowControl() CTP_FC_ACKNOWLEDGE\n" + debug +
                      "setSelectTimeout() select timeout set to 0.010000\n");
    }
}

TEST(FlowControl, readyAfterABurstLeavesTheWaitAsItIs)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.request(pattern(20));
    endpoint.expire();
    endpoint.flowControl(1);
    EXPECT_EQ(Access::retries(endpoint), 0);
    endpoint.sent();
    log.out();
    Access::timeLeft(endpoint) = {0, 300000};
    endpoint.flowControl(1);
    EXPECT_EQ(
        log.out(),
        tag +
            "checkFlowControl() got READY_TO_RECEIVE but have no data left that could be send.\n");
    EXPECT_EQ(endpoint.stateText(), waiting);
    EXPECT_EQ(endpoint.timerMs(), 300);
    endpoint.flowControl(3);
    EXPECT_TRUE(endpoint.sendQueueEmpty());
}

TEST(FlowControl, readyAfterASingleFrameFailsAndTheMessageStartsAgainWithTheTimer)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.request({1});
    endpoint.framesOf(pattern(20), 0, 1); // a reception loses its flag with the others
    endpoint.sent();
    log.out();
    Access::timeLeft(endpoint) = {0, 300000};
    endpoint.flowControl(1);
    EXPECT_EQ(log.out(), tag + "processSendQueue() reached end of vector (2) - be confused :-/\n");
    EXPECT_EQ(endpoint.stateText(), "RCTS_IDLE");
    EXPECT_EQ(endpoint.timerMs(), 300);
    EXPECT_TRUE(Access::receiving(endpoint));
    endpoint.expire();
    EXPECT_EQ(endpoint.sent(), Lines{"01 01 00 00 00 00 00 00"});
    EXPECT_EQ(endpoint.stateText(), waiting);
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

TEST(FlowControl, anUnknownCodeEndsTheWaitAndTheTimerDecides)
{
    struct {
        const char* after;
        Bytes message;
        bool ready;
        Lines sentByExpiry;
        std::string line;
    } const rows[] = {
        {"a first frame",
         pattern(14),
         false,
         {hex(cut(pattern(14))[1]), hex(cut(pattern(14))[2])},
         ""},
        {"a single frame",
         {1},
         false,
         {},
         tag + "processSendQueue() reached end of vector (2) - be confused :-/\n"},
        {"a burst",
         pattern(14),
         true,
         {},
         tag + "processSendQueue() reached end of vector - be confused :-/\n"},
    };
    for (const auto& row : rows) {
        LogCapture log;
        Endpoint endpoint;
        endpoint.request(row.message);
        if (row.ready) {
            endpoint.flowControl(1);
        } else {
            endpoint.frame({0x01, 1});
        }
        endpoint.sent();
        log.out();
        endpoint.flowControl(4);
        EXPECT_EQ(log.out(), "");
        EXPECT_EQ(endpoint.stateText(), "RCTS_SENDING ");
        endpoint.flowControl(3); // not awaited any more
        EXPECT_FALSE(endpoint.sendQueueEmpty());
        log.out();
        endpoint.expire();
        EXPECT_EQ(log.out(), row.line) << row.after;
        EXPECT_EQ(endpoint.sent(), row.sentByExpiry) << row.after;
        EXPECT_EQ(endpoint.stateText(), row.sentByExpiry.empty() ? "RCTS_IDLE" : waiting)
            << row.after;
        EXPECT_EQ(Access::queued(endpoint), 1U);
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

TEST(FlowControl, anAcknowledgementOfAnOwnMessageEndsTheReceptionAndItsBytes)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.request({0x41});
    endpoint.framesOf(pattern(100), 0, 3);
    endpoint.flowControl(3);
    EXPECT_EQ(endpoint.stateText(), "RCTS_RECEIVING ");
    EXPECT_EQ(endpoint.timerMs(), 10);
    endpoint.framesOf(pattern(20));
    EXPECT_EQ(endpoint.delivered(), std::vector<Bytes>{pattern(20)});
}

TEST(FlowControl, aGiveUpThroughRefusalsEndsARunningReceptionInSilence)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.request({0x41});
    endpoint.framesOf(pattern(20), 0, 2);
    endpoint.statuses();
    for (int i = 0; i < 5; ++i) {
        endpoint.sent();
        endpoint.flowControl(2);
    }
    EXPECT_EQ(endpoint.sent(), Lines{});
    EXPECT_EQ(endpoint.statuses(), Lines{"CTT_DISCONNECTED 0"});
    EXPECT_EQ(endpoint.stateText(), "RCTS_IDLE");
    endpoint.framesOf(pattern(40));
    EXPECT_EQ(endpoint.delivered(), std::vector<Bytes>{pattern(40)});
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
