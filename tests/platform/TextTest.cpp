// SPDX-License-Identifier: MIT
#include "velk/Hexdump.h"
#include "velk/LogUtil.h"
#include "velk/TraceMessage.h"
#include "velk/VelkException.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

TEST(Text, hasItsFormWhateverTheStreamIsSetTo)
{
    const unsigned char bytes[] = {'A', ' ', 0x00, 0xFF, '~', 0x7F};
    std::ostringstream text;
    text << std::setfill('*') << std::oct << std::showbase;
    text << timeval{12, 10000} << '\n' << CANExtTraceMessage(0x12, bytes + 2, 2) << '\n';
    CANTransportTraceMessage({1, 2, 3}, 0x7FF).print(text) << '\n';
    MessageBase(2).print(text) << '\n';
    hexdump(text, bytes, bytes + 6, "P:", 4, HEXDUMP_OFFSET, true);
    hexdump(text, bytes, bytes + 2, "P:", 0, HEXDUMP_NONE, false);
    hexdump(text, bytes, bytes, "P:", 16, HEXDUMP_OFFSET, true);
    text << std::setw(5);
    text.setstate(std::ios_base::failbit); // a stream that is not good() gets no line
    hexdump(text, bytes, bytes + 2, "P:", 0, HEXDUMP_NONE, false);
    EXPECT_EQ(text.rdstate(), std::ios_base::failbit);
    text.clear();
    text << 8;
    EXPECT_EQ(text.str(), "12.010000\n"
                          "CAN frame 0x012 [2] 00 ff\n"
                          "transport message 0x7ff, 3 bytes\n"
                          "trace message 0x0002, 0 bytes\n"
                          "P: 0000: 41 20 00 ff  A ..\n"
                          "P: 0004: 7e 7f        ~.\n"
                          "P: 41 20\n"
                          "**010");
}

TEST(VelkException, aCopyKeepsTheTextAndGoesOnWithIt)
{
    VelkException original;
    original << "channel " << 3;
    original.code = 7;
    VelkException copy(original);
    copy << " closed";
    EXPECT_STREQ(copy.what(), "channel 3 closed");
    EXPECT_EQ(copy.code, 7);
}
