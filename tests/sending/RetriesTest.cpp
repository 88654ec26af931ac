#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

namespace {

using Access = CANTransportThreadAccess;
const std::string retryLine = "[INFO] CANTransportThread::handleSendError() send retry = ";

/// A message that nobody answers: the first transmission and `expiries` expiries.
void sendInVain(Endpoint& endpoint, int expiries = 5)
{
    endpoint.request(pattern(20));
    for (int i = 0; i < expiries; ++i) {
        endpoint.expire();
    }
}

} // namespace

TEST(Retries, aMessageIsSentFiveTimesInAllAndOneReportStandsForTheOutage)
{
    for (const bool connected : {false, true}) {
        LogCapture log;
        Endpoint endpoint;
        if (connected) {
            endpoint.frame({0x01, 1});
        }
        endpoint.sent();
        endpoint.statuses();
        log.out();
        endpoint.request(pattern(20));
        endpoint.request({2}); // dropped with the first, without a frame
        for (int i = 0; i < 5; ++i) {
            endpoint.expire();
        }
        const std::string status = connected ? "CTT_DISCONNECTED" : "CTT_SEND_TIMEOUT";
        EXPECT_EQ(endpoint.sent(), Lines(5, hex(cut(pattern(20))[0])));
        EXPECT_EQ(endpoint.statuses(), Lines{status + " 0"});
        EXPECT_EQ(log.out(), retryLine + "0\n" + retryLine + "1\n" + retryLine + "2\n" + retryLine +
                                 "3\n" + retryLine +
                                 "4\n[INFO] CANTransportThread::handleSendError() " + status +
                                 "\n");
        EXPECT_EQ(endpoint.stateText(), "RCTS_IDLE");
        EXPECT_TRUE(Access::restIfIdle(endpoint));
        sendInVain(endpoint); // the outage lasts: no further report, and no line
        EXPECT_EQ(endpoint.sent().size(), 5U);
        EXPECT_EQ(endpoint.statuses(), Lines{});
        EXPECT_EQ(log.out(), "");
        endpoint.frame({0x01, 1});
        sendInVain(endpoint);
        EXPECT_EQ(endpoint.statuses(), (Lines{"CTT_CONNECTED 0", "CTT_DISCONNECTED 0"}));
    }
}

TEST(Retries, withoutADelegateTheRetryLinesGoOn)
{
    LogCapture log;
    Endpoint endpoint;
    std::function<void(CANTransportThread::statuschange_t, unsigned short)> none;
    endpoint.setDelegate(none);
    sendInVain(endpoint);
    log.out();
    sendInVain(endpoint, 1);
    EXPECT_EQ(log.out(), retryLine + "0\n");
}

TEST(Retries, oneExpiryEndsAReceptionAndCountsAFailure)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.request({0x41});
    endpoint.framesOf(pattern(20), 0, 2);
    endpoint.sent();
    endpoint.statuses();
    for (int failure = 1; failure <= 5; ++failure) {
        endpoint.expire();
        EXPECT_EQ(Access::retries(endpoint), failure % 5);
        if (failure == 1) {
            EXPECT_EQ(endpoint.sent(), (Lines{fc(2), "01 41 00 00 00 00 00 00"}));
            EXPECT_EQ(endpoint.statuses(), Lines{"CTT_RECEIVE_TIMEOUT 0"});
        }
        if (failure == 4) { // so that the last expiry finds both again
            endpoint.framesOf(pattern(20), 0, 2);
        }
    }
    EXPECT_EQ(endpoint.statuses(), (Lines{"CTT_RECEIVE_TIMEOUT 0", "CTT_DISCONNECTED 0"}));
}

TEST(Retries, withoutResendAFailureIsOnlyCountedAndEndsInASendTimeout)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.frame({0x01, 1});
    endpoint.request({0x41});
    endpoint.sent();
    endpoint.statuses();
    Access::timeLeft(endpoint) = {0, 0};
    for (int i = 0; i < 5; ++i) {
        Access::handleSendError(endpoint, false);
    }
    EXPECT_EQ(endpoint.sent(), Lines{});
    EXPECT_EQ(endpoint.statuses(), Lines{"CTT_SEND_TIMEOUT 0"});
    EXPECT_EQ(endpoint.timerMs(), 1000);
}

TEST(Retries, clearDoesNotGiveANewMessageItsAttemptsBack)
{
    LogCapture log;
    Endpoint endpoint;
    sendInVain(endpoint, 3);
    endpoint.clear(true);
    endpoint.sent();
    endpoint.request({1});
    endpoint.expire();
    endpoint.expire();
    EXPECT_EQ(endpoint.sent().size(), 2U);
    EXPECT_TRUE(endpoint.sendQueueEmpty());
}

TEST(Retries, anExpiryEndsTheReception)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.framesOf(pattern(100), 0, 3);
    endpoint.statuses();
    log.out();
    endpoint.expire();
    EXPECT_EQ(log.out(), "[INFO] CANTransportThread::handleTimeout() CTT_RECEIVE_TIMEOUT\n");
    EXPECT_EQ(endpoint.statuses(), Lines{"CTT_RECEIVE_TIMEOUT 0"});
    EXPECT_EQ(endpoint.sent(), (Lines{fc(1), fc(2)}));
    EXPECT_EQ(endpoint.stateText(), "RCTS_IDLE");
    endpoint.framesOf(pattern(20));
    EXPECT_EQ(endpoint.delivered(), std::vector<Bytes>{pattern(20)});
}
