// SPDX-License-Identifier: MIT
#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

namespace {

/// Two endpoints on a bus on which frames wait until they are carried.
class Stories : public testing::Test {
protected:
    /// Carries what one endpoint has sent to the other.
    /// @param lost number of the frame that does not arrive.
    /// @return the frames.
    static Lines hop(Endpoint& from, Endpoint& to, std::size_t lost = SIZE_MAX)
    {
        Lines lines;
        for (const CANTransportThread::TPCANMsg& frame : from.sentFrames()) {
            if (lines.size() != lost) {
                Access::handle(to, frame);
            }
            lines.push_back(hex(frame));
        }
        return lines;
    }

    LogCapture log;
    Endpoint a;
    Endpoint z;
    const Bytes message{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20};
    const Lines first{"10 14 01 02 03 04 05 06"};
    const Lines rest{"20 07 08 09 0a 0b 0c 0d", "21 0e 0f 10 11 12 13 14"};
};

} // namespace

TEST_F(Stories, aMessageBothWays)
{
    // A announces its message, Z is ready, A sends the rest, Z acknowledges.
    a.request(message);
    EXPECT_EQ(hop(a, z), first);
    EXPECT_EQ(hop(z, a), Lines{fc(1)});
    EXPECT_EQ(hop(a, z), rest);
    EXPECT_EQ(hop(z, a), Lines{fc(3)});
    EXPECT_EQ(z.delivered(), std::vector<Bytes>{message});
    EXPECT_EQ(a.statuses(), (Lines{"CTT_CONNECTED 0", "CTT_ACKNOWLEDGED 20"}));
    // Z replies with what one frame holds, A acknowledges.
    z.request({7});
    EXPECT_EQ(hop(z, a), Lines{"01 07 00 00 00 00 00 00"});
    EXPECT_EQ(hop(a, z), Lines{fc(3)});
    EXPECT_EQ(a.delivered(), std::vector<Bytes>{{7}});
    EXPECT_EQ(z.statuses(), (Lines{"CTT_CONNECTED 0", "CTT_ACKNOWLEDGED 7"}));
}

TEST_F(Stories, aConsecutiveFrameIsLost)
{
    a.request(message);
    EXPECT_EQ(hop(a, z), first);
    EXPECT_EQ(hop(z, a), Lines{fc(1)});
    // The first frame of the rest is lost; Z refuses the one after it.
    EXPECT_EQ(hop(a, z, 0), rest);
    EXPECT_EQ(hop(z, a), Lines{fc(2)});
    // A starts afresh.
    EXPECT_EQ(hop(a, z), first);
    EXPECT_EQ(hop(z, a), Lines{fc(1)});
    EXPECT_EQ(hop(a, z), rest);
    // Z has it once.
    EXPECT_EQ(z.delivered(), std::vector<Bytes>{message});
    EXPECT_EQ(hop(z, a), Lines{fc(3)});
    EXPECT_EQ(a.statuses(), (Lines{"CTT_CONNECTED 0", "CTT_ACKNOWLEDGED 20"}));
}

TEST_F(Stories, aPeerThatRefusesFiveTimesIsDisconnected)
{
    // Z is in the middle of another's message.
    z.frame({0x10, 20});
    EXPECT_EQ(z.sent(), Lines{fc(1)});
    a.request(message);
    a.request({7});
    for (int attempt = 0; attempt < 5; ++attempt) {
        EXPECT_EQ(a.statuses(), attempt == 1 ? Lines{"CTT_CONNECTED 0"} : Lines{});
        // Z refuses a first frame.
        EXPECT_EQ(hop(a, z), first);
        EXPECT_EQ(hop(z, a), Lines{fc(0)});
    }
    // A has given up both messages.
    EXPECT_EQ(a.statuses(), Lines{"CTT_DISCONNECTED 0"});
    EXPECT_TRUE(a.sendQueueEmpty());
}

TEST_F(Stories, aSilentPeerIsReportedOnceUntilItReturns)
{
    const auto giveUp = [this] {
        a.request({7});
        for (int attempt = 0; attempt < 5; ++attempt) {
            EXPECT_EQ(a.sent(), Lines{"01 07 00 00 00 00 00 00"});
            a.expire();
        }
    };
    const std::string retries = "[INFO] CANTransportThread::handleSendError() send retry = ";
    // Nobody answers: there is a line for each attempt and one report.
    giveUp();
    EXPECT_NE(log.out().find(retries + "4\n"), std::string::npos);
    EXPECT_EQ(a.statuses(), Lines{"CTT_SEND_TIMEOUT 0"});
    // The next message ends in silence.
    giveUp();
    EXPECT_EQ(log.out(), "");
    EXPECT_EQ(a.statuses(), Lines{});
    // Z sends a message: it is there.
    z.request({8});
    hop(z, a);
    EXPECT_EQ(hop(a, z), Lines{fc(3)});
    EXPECT_EQ(a.statuses(), Lines{"CTT_CONNECTED 0"});
    // It goes again. Without a delegate nobody hears of it, so the lines go on.
    std::function<void(CANTransportThread::statuschange_t, unsigned short)> none;
    a.setDelegate(none);
    giveUp();
    log.out();
    giveUp();
    EXPECT_NE(log.out().find(retries + "4\n"), std::string::npos);
}
