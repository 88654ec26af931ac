#include "velk/BufferMismatchException.h"

#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

namespace {

const unsigned char single[9] = {0x01, 0x41};

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

} // namespace

TEST(TraceInput, framesOfAllThreeIdsAndRequestsAreTakenInOneCallInOrder)
{
    Endpoint endpoint;
    endpoint.write(
        bytesOf(CANTraceMessage(1, single, 2)) + bytesOf(CANExtTraceMessage(2, single, 8)) +
        bytesOf(CANAltTraceMessage(3, single, 2)) + bytesOf(CANTransportTraceMessage({7})));
    endpoint.takeInput();
    EXPECT_EQ(endpoint.delivered().size(), 3U);
    EXPECT_EQ(endpoint.sent(), (Lines{fc(3), fc(3), fc(3), "01 07 00 00 00 00 00 00"}));
}

TEST(TraceInput, aShortFrameIsReadAsIfPaddedWithZeros)
{
    Endpoint endpoint;
    const unsigned char data[2] = {0x03, 0x41};
    endpoint.write(bytesOf(CANExtTraceMessage(1, data, 2)));
    endpoint.takeInput();
    EXPECT_EQ(endpoint.delivered(), (std::vector<Bytes>{{0x41, 0, 0}}));
}

TEST(TraceInput, moreThanEightDataBytesAreAnExceptionAndTheRestStaysInTheBuffer)
{
    for (const int length : {9, 10, 64}) {
        Endpoint endpoint;
        const unsigned char data[64] = {};
        endpoint.write(bytesOf(CANTraceMessage(1, data, static_cast<std::uint8_t>(length))) +
                       bytesOf(CANTransportTraceMessage({7})));
        try {
            endpoint.takeInput();
            FAIL() << length;
        } catch (const BufferMismatchException& error) {
            EXPECT_STREQ(error.what(), "CANTraceMessageBase too long");
        }
        EXPECT_EQ(endpoint.sent(), Lines{});
        endpoint.takeInput();
        EXPECT_EQ(endpoint.sent(), Lines{"01 07 00 00 00 00 00 00"}) << length;
    }
}

TEST(TraceInput, anUnknownIdIsDumpedAndTheNextMessageHandled)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.write(bytesOf(MessageBase(2)) + bytesOf(CANTransportTraceMessage({7})));
    endpoint.takeInput();
    EXPECT_EQ(log.out(),
              "[ERROR] CANTransportThread::handleData() unknown trace-message id found.\n");
    EXPECT_EQ(log.err(),
              "[ERROR] CANTransportThread: 0000: a3 c5 02 00 10 00 00 00 00 00 00 00 00 00 00 00"
              "  ................\n");
    EXPECT_EQ(endpoint.sent().size(), 1U);
}

TEST(TraceInput, garbageCostsOneLineAndNoRecord)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.write(bytesOf(CANTransportTraceMessage({7})) + Bytes{1, 2, 3} +
                   bytesOf(CANExtTraceMessage(1, single, 2)));
    endpoint.takeInput();
    EXPECT_EQ(log.out(),
              "[INFO] CANTransportThread::handleCANData() CTT_CONNECTED\n"
              "[ERROR] CANTransportThread::getNextTraceMessage() Got exception: dropped 3 "
              "bytes that are no trace message\n");
    EXPECT_EQ(endpoint.sent().size(), 2U);
}

TEST(TraceInput, atLevelOneEveryMessageIsToldBeforeWhatItCauses)
{
    LogCapture log;
    Endpoint endpoint(1);
    endpoint.write(bytesOf(CANTransportTraceMessage({7})));
    endpoint.takeInput();
    EXPECT_EQ(log.out(),
              "[DEBUG] CANTransportThread::handleData() CAN data received:  transport message "
              "0x000, 1 bytes\n"
              "[DEBUG] CANTransportThread::prepareData() single frame:   0x00000123 8  0x01 "
              "0x07 0x00 0x00 0x00 0x00 0x00 0x00\n"
              "[DEBUG] CANTransportThread::sendCANMessage() CAN write to canProxyFD: CAN frame "
              "0x123 [8] 01 07 00 00 00 00 00 00\n");
}
