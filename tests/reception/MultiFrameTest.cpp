#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

namespace {

using Access = CANTransportThreadAccess;

/// What the four error lines of a refusal are.
std::string refusal(const std::string& word, const std::string& phase, const std::string& frame)
{
    const std::string tag = "[ERROR] CANTransportThread::";
    return tag + "showError() received " + word + " but expected " + phase + "\n" + tag +
           "showError() message:  0x00000456 8  " + frame + "\n" + tag +
           "showErrorAndClearBuffer() send CTP_FC_NOT_READY_TO_RECEIVE\n" + tag +
           "showErrorAndClearBuffer() receiveBuffer.clear()\n";
}

} // namespace

TEST(MultiFrame, aFrameThatThePhaseDoesNotAllowIsRefusedAndChangesNothingElse)
{
    const std::string first = "first or single frame";
    const std::string consecutive = "consecutive frame";
    struct {
        bool receiving;
        int byte;
        std::string word;
        std::string phase;
    } const rows[] = {
        {false, 0x00, "single frame", first},      {true, 0x00, "single frame", consecutive},
        {false, 0x08, "single frame", first},      {true, 0x0F, "single frame", consecutive},
        {false, 0x40, "unknown frame", first},     {true, 0xFF, "unknown frame", consecutive},
        {true, 0x01, "single frame", consecutive}, {true, 0x11, "first frame", consecutive},
        {false, 0x20, "consecutive frame", first},
    };
    for (const auto& row : rows) {
        LogCapture log;
        Endpoint endpoint;
        if (row.receiving) {
            endpoint.framesOf(pattern(100), 0, 3);
        } else {
            endpoint.frame({0x01, 1});
        }
        endpoint.sent();
        endpoint.delivered();
        log.out();
        Access::timeLeft(endpoint) = {0, 300000};
        endpoint.frame({row.byte, 2});
        char byte[8];
        std::snprintf(byte, sizeof byte, "0x%02x", static_cast<unsigned int>(row.byte));
        EXPECT_EQ(log.out(), refusal(row.word, row.phase,
                                     byte + std::string(" 0x02 0x00 0x00 0x00 0x00 0x00 0x00")));
        EXPECT_EQ(endpoint.sent(), Lines{fc(0)});
        EXPECT_EQ(endpoint.delivered().size(), 0U);
        EXPECT_EQ(Access::receiving(endpoint), row.receiving);
        EXPECT_EQ(endpoint.stateText(), row.receiving ? "RCTS_RECEIVING " : "RCTS_IDLE");
        EXPECT_EQ(Access::bytesReceived(endpoint), 0U);
        EXPECT_EQ(endpoint.timerMs(), 300);
    }
}

TEST(MultiFrame, aWrongSequenceNumberHasItsOwnLine)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.framesOf(pattern(100), 0, 3);
    log.out();
    endpoint.frame({0x21});
    EXPECT_EQ(log.out(), "[ERROR] CANTransportThread::checkConsecutiveFrame() sequence counter of "
                         "consecutive frame wrong. Got 1 but expected 2\n");
}
