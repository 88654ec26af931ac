#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using Access = CANTransportThreadAccess;
using Delegate = std::function<void(CANTransportThread::statuschange_t, unsigned short)>;
const std::string tag = "[ERROR] CANTransportThread::";

} // namespace

TEST(Reception, aMessageIsDeliveredUnderItsShortIdAndAcknowledgedUnderTheOwnOne)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.setSendCANid(0xF923); // sent() tells every id but 0x123
    endpoint.frame({0x07, 1, 2, 3, 4, 5, 6, 7}, 0xABCD1234);
    EXPECT_EQ(endpoint.delivered(), (std::vector<Bytes>{{1, 2, 3, 4, 5, 6, 7}}));
    EXPECT_EQ(endpoint.lastDeliveredId, 0x1234U);
    EXPECT_EQ(endpoint.sent(), Lines{fc(3)});
}

TEST(Reception, aMissingOrFaultyDelegateChangesNothing)
{
    const std::string line = tag + "handleCANData() exception from the delegate: ";
    const std::pair<Delegate, std::string> rows[] = {
        {nullptr, ""},
        {[](auto, auto) { throw std::runtime_error("oops"); }, line + "oops\n"},
        {[](auto, auto) { throw 1; }, line + "not a std::exception\n"},
    };
    for (auto [delegate, text] : rows) {
        LogCapture log;
        Endpoint endpoint;
        endpoint.setDelegate(delegate);
        endpoint.frame({0x01, 5});
        EXPECT_EQ(log.out().empty(), delegate == nullptr);
        EXPECT_EQ(log.err(), text);
        EXPECT_EQ(endpoint.sent(), Lines{fc(3)});
    }
}

TEST(Reception, aDeliveryThatFailsIsTold)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.breakClient();
    endpoint.frame({0x01, 5});
    endpoint.mendClient();
    EXPECT_EQ(log.err(), tag + "addReceivedData() failed to write data to pipe: \n"
                               "errno 9: Bad file descriptor\n");
    EXPECT_EQ(endpoint.sent(), Lines{fc(2)});
}

TEST(Reception, aFrameThatThePhaseDoesNotAllowIsToldAndLeavesTheTimer)
{
    struct {
        bool receiving;
        std::uint8_t byte;
        const char* text;
    } const rows[] = {
        {false, 0x00, "single frame but expected first or single frame"},
        {true, 0x11, "first frame but expected consecutive frame"},
        {false, 0x20, "consecutive frame but expected first or single frame"},
        {true, 0xFF, "unknown frame but expected consecutive frame"},
    };
    for (const auto& [receiving, byte, text] : rows) {
        LogCapture log;
        Endpoint endpoint;
        endpoint.framesOf(pattern(100), 0, receiving ? 1 : SIZE_MAX);
        log.out();
        Access::setTimeLeft(endpoint, 300000);
        endpoint.frame({byte, 2});
        std::ostringstream frame;
        frame << CANTransportThread::TPCANMsg{Endpoint::peerId, 8, {byte, 2}};
        EXPECT_EQ(log.out(), tag + "showError() received " + text + "\n" + tag +
                                 "showError() message: " + frame.str() + "\n" + tag +
                                 "showErrorAndClearBuffer() send CTP_FC_NOT_READY_TO_RECEIVE\n" +
                                 tag + "showErrorAndClearBuffer() receiveBuffer.clear()\n");
        EXPECT_EQ(Access::snapshot(endpoint).timerUs, 300000);
    }
}

TEST(Reception, aMessageThatCannotBecomeWholeHasItsLine)
{
    LogCapture log;
    Endpoint endpoint(0);
    endpoint.framesOf(pattern(100), 0, 3);
    log.out();
    endpoint.frame({0x21});
    endpoint.frame({0x10, 2});
    endpoint.frame({0x20});
    EXPECT_EQ(log.out(), tag +
                             "checkConsecutiveFrame() sequence counter of consecutive frame wrong. "
                             "Got 1 but expected 2\n" +
                             tag +
                             "checkConsecutiveFrame() consecutive frame of a message that has 4 "
                             "bytes too many\n");
}
