#include "velk/Hexdump.h"
#include "velk/LogUtil.h"
#include "velk/VelkException.h"

#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <iomanip>

TEST(VelkException, aCopyKeepsTheTextAndGoesOnWithIt)
{
    VelkException original;
    original << "channel " << 3;
    original.code = 7;
    VelkException copy(original);
    copy << " closed";
    EXPECT_STREQ(copy.what(), "channel 3 closed");
    EXPECT_STREQ(original.what(), "channel 3");
    EXPECT_EQ(copy.code, 7);
}

TEST(Hexdump, showsOffsetBytesAndText)
{
    const Bytes bytes = {'A', 'b', 0x00, 0xFF, '~', 0x7F};
    std::ostringstream text;
    text << std::setfill('*') << std::oct;
    hexdump(text, bytes.data(), bytes.data() + bytes.size(), "P:", 4, HEXDUMP_OFFSET, true);
    hexdump(text, bytes.data(), bytes.data() + 2, "P:", 16, HEXDUMP_NONE, false);
    hexdump(text, bytes.data(), bytes.data(), "P:", 16, HEXDUMP_OFFSET, true);
    EXPECT_EQ(text.str(), "P: 0000: 41 62 00 ff  Ab..\n"
                          "P: 0004: 7e 7f        ~.\n"
                          "P: 41 62\n");
}

TEST(LogUtil, errorsAndTimesHaveTheirForm)
{
    LogCapture log;
    std::cerr << std::hex;
    LogUtil::printError(EPIPE);
    std::cerr << timeval{12, 10000} << std::dec;
    EXPECT_EQ(log.err(), "errno 32: Broken pipe\n12.010000");
}

TEST(TraceMessage, printsItself)
{
    const unsigned char data[2] = {0xAB, 1};
    std::ostringstream text;
    text << CANExtTraceMessage(0x12, data, 2) << '\n';
    CANTransportTraceMessage({1, 2, 3}, 0x7FF).print(text) << '\n';
    MessageBase(2).print(text);
    EXPECT_EQ(text.str(), "CAN frame 0x012 [2] ab 01\n"
                          "transport message 0x7ff, 3 bytes\n"
                          "trace message 0x0002, 0 bytes");
}
