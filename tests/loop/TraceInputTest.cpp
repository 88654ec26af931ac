// SPDX-License-Identifier: MIT
#include "velk/BufferMismatchException.h"

#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <unistd.h>

TEST(TraceInput, framesOfAllIdsAndRequestsAreTakenInOneCallInOrder)
{
    const unsigned char data[] = {0x03, 0x41}; // the rest counts as 0
    for (const int level : {0, 1}) {           // frames are taken in another way for the log
        LogCapture log;
        Endpoint endpoint(level);
        endpoint.write(recordOf({1, 8, {0x07, 1, 2, 3, 4, 5, 6, 7}}));
        endpoint.write(bytesOf(CANTraceMessage(1, data, 2)));
        endpoint.write(bytesOf(CANExtTraceMessage(2, data, 2)));
        endpoint.write(bytesOf(CANTransportTraceMessage({7})));
        endpoint.write(bytesOf(CANAltTraceMessage(3, data, 2)));
        endpoint.takeInput();
        endpoint.write(bytesOf(CANTraceMessage(1, pattern(9).data(), 9)));
        EXPECT_THROW(endpoint.takeInput(), BufferMismatchException);
        std::vector<Bytes> expected(4, {0x41, 0, 0});
        expected[0] = {1, 2, 3, 4, 5, 6, 7};
        EXPECT_EQ(endpoint.delivered(), expected);
        EXPECT_EQ(endpoint.sent(), (Lines{fc(3), fc(3), fc(3), "01 07 00 00 00 00 00 00", fc(3)}));
    }
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

TEST(TraceInput, reportsCallsThatFail)
{
    for (const bool hasSink : {false, true}) {
        LogCapture log;
        Endpoint endpoint(1);
        std::string lines;
        if (hasSink) {
            endpoint.setLogSink([&](LogUtil::Level level, const std::string& line) {
                lines += level == LogUtil::Level::error ? "[ERROR] " + line + '\n' : "";
            });
        }
        endpoint.breakClient();
        endpoint.frame({0x01, 5});
        endpoint.mendClient();
        EXPECT_EQ(endpoint.sent(), Lines{fc(2)});
        endpoint.breakProxy(true);
        endpoint.frame({0x01, 5});
        log.out();
        close(Access::input(endpoint)[0]);
        Access::pass(endpoint);
        endpoint.takeInput();
        EXPECT_EQ(endpoint.sendQueueEmpty(), false) << "of a pipe that cannot be looked at";
        const std::string tag = "[ERROR] CANTransportThread::";
        const std::string end = hasSink ? "" : "\n";
        const std::string bad = end + "errno 9: Bad file descriptor\n" + tag;
        EXPECT_EQ(lines + log.err(),
                  tag + "addReceivedData() failed to write data to pipe: " + bad +
                      "sendCANMessage() failed to send data to the CAN proxy: " + end +
                      "errno 11: Resource temporarily unavailable\n" + tag +
                      "threadCode() pselect() reported an error." + (hasSink ? " " : "") + bad +
                      "getNextTraceMessage() failed to read data: " +
                      bad.substr(0, bad.size() - tag.size()));
    }
}
