#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

namespace {

const unsigned char data[] = {0x03, 0x41}; // the rest counts as 0

} // namespace

TEST(TraceInput, framesOfAllIdsAndRequestsAreTakenInOneCallInOrder)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.write(bytesOf(CANTraceMessage(1, data, 2)));
    endpoint.write(bytesOf(CANExtTraceMessage(2, data, 2)));
    endpoint.write(bytesOf(CANTransportTraceMessage({7})));
    endpoint.write(bytesOf(CANAltTraceMessage(3, data, 2)));
    endpoint.takeInput();
    EXPECT_EQ(endpoint.delivered(), std::vector<Bytes>(3, {0x41, 0, 0}));
    EXPECT_EQ(endpoint.sent(), (Lines{fc(3), fc(3), "01 07 00 00 00 00 00 00", fc(3)}));
}

TEST(TraceInput, whatIsNoMessageHasItsLines)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.write(bytesOf(MessageBase(2)));
    endpoint.write({1, 2, 3});
    endpoint.request({7});
    EXPECT_EQ(log.out(),
              "[ERROR] CANTransportThread::handleData() unknown trace-message id found.\n"
              "[ERROR] CANTransportThread::getNextTraceMessage() Got exception: dropped 3 "
              "bytes that are no trace message\n");
    EXPECT_EQ(log.err(),
              "[ERROR] CANTransportThread: 0000: a3 c5 02 00 10 00 00 00 00 00 00 00 00 00 00 00"
              "  ................\n");
    EXPECT_EQ(endpoint.sent(), Lines{"01 07 00 00 00 00 00 00"});
}
