#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <utility>

#include <unistd.h>

TEST(SingleFrame, isDeliveredAndAcknowledged)
{
    Endpoint endpoint;
    endpoint.frame({0x07, 1, 2, 3, 4, 5, 6, 7}, 0xABCD1234);
    EXPECT_EQ(endpoint.delivered(), (std::vector<Bytes>{{1, 2, 3, 4, 5, 6, 7}}));
    EXPECT_EQ(endpoint.lastDeliveredId, 0x1234U);
    EXPECT_EQ(endpoint.sent(), Lines{fc(3)});
    EXPECT_EQ(endpoint.stateText(), "RCTS_IDLE");
    EXPECT_EQ(endpoint.timerMs(), 1000);
}

TEST(SingleFrame, theFirstFrameHeardConnectsWhateverItIs)
{
    LogCapture log;
    Endpoint endpoint(3);
    endpoint.frame({0xF0});
    endpoint.frame({0x01, 5});
    EXPECT_EQ(endpoint.statuses(), Lines{"CTT_CONNECTED 0"});
    const std::string text = log.out();
    EXPECT_EQ(text.substr(0, text.find("[ERROR]")),
              "[DEBUG] CANTransportThread::handleCANData() CAN data received from the CAN proxy:  "
              "0x00000456 8  0xf0 0x00 0x00 0x00 0x00 0x00 0x00 0x00\n"
              "[DEBUG] CANTransportThread::handleCANData() connected: 0\n"
              "[DEBUG] CANTransportThread::handleCANData() other side is alive, connected\n"
              "[INFO] CANTransportThread::handleCANData() CTT_CONNECTED\n");
    EXPECT_EQ(text.substr(text.find("[DEBUG] CANTransportThread::checkSingleFrame")),
              "[DEBUG] CANTransportThread::checkSingleFrame()  0x00000456 8  0x01 0x05 0x00 0x00 "
              "0x00 0x00 "
              "0x00 0x00\n"
              "[DEBUG] CANTransportThread::addReceivedData() canID=456\n"
              "[DEBUG] CANTransportThread::sendFlowControl()  0x00000123 8  0x33 0x00 0x00 0x00 "
              "0x00 0x00 "
              "0x00 0x00\n"
              "[DEBUG] CANTransportThread::sendCANMessage() CAN write to canProxyFD: CAN frame "
              "0x123 [8] 33 "
              "00 00 00 00 00 00 00\n"
              "[DEBUG] CANTransportThread::setSelectTimeout() select timeout set to 1.000000\n");
}

TEST(SingleFrame, withoutADelegateNothingIsReported)
{
    LogCapture log;
    Endpoint endpoint;
    std::function<void(CANTransportThread::statuschange_t, unsigned short)> none;
    endpoint.setDelegate(none);
    endpoint.frame({0x01, 5});
    EXPECT_EQ(log.out(), "");
    EXPECT_EQ(endpoint.delivered().size(), 1U);
}

TEST(SingleFrame, anExceptionOfTheDelegateIsLoggedAndGoesNoFurther)
{
    for (const bool standard : {true, false}) {
        LogCapture log;
        Endpoint endpoint;
        std::function<void(CANTransportThread::statuschange_t, unsigned short)> faulty =
            [standard](CANTransportThread::statuschange_t, unsigned short) {
                standard ? throw std::runtime_error("oops") : throw 1;
            };
        endpoint.setDelegate(faulty);
        endpoint.frame({0x01, 5});
        EXPECT_EQ(log.err(),
                  std::string(
                      "[ERROR] CANTransportThread::handleCANData() exception from the delegate: ") +
                      (standard ? "oops\n" : "not a std::exception\n"));
        EXPECT_EQ(endpoint.delivered().size(), 1U);
    }
}

TEST(SingleFrame, theIdOnTheBusHasElevenBits)
{
    LogCapture log;
    Endpoint endpoint(1);
    endpoint.setSendCANid(0xF923);
    endpoint.frame({0x01, 5});
    EXPECT_EQ(endpoint.sent(), Lines{fc(3)}); // sent() tells every id but 0x123
    EXPECT_NE(log.out().find("sendFlowControl()  0x0000f923 8"), std::string::npos);
}

TEST(SingleFrame, aDeliveryThatFailsIsRefused)
{
    LogCapture log;
    Endpoint endpoint;
    close(std::exchange(CANTransportThreadAccess::outputWriteEnd(endpoint), -1));
    endpoint.frame({0x01, 5});
    EXPECT_EQ(log.err(),
              "[ERROR] CANTransportThread::addReceivedData() failed to write data to pipe: \n"
              "errno 9: Bad file descriptor\n");
    EXPECT_EQ(endpoint.sent(), Lines{fc(2)});
    EXPECT_EQ(endpoint.stateText(), "RCTS_IDLE");
}
