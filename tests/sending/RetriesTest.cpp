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
