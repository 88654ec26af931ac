#include "velk/CANTransportThread.h"

#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

namespace {

const std::string zeros = " 0x00 0x00 0x00 0x00 0x00 0x00\n";

/// The level from which on a line is there, and the line behind its tag and class.
const Lines story = {
    // a single frame, the first that is heard
    "2 handleCANData() CAN data received from the CAN proxy:  0x00000456 8  0x01 0x05" + zeros,
    "3 handleCANData() connected: 0\n",
    "1 handleCANData() other side is alive, connected\n",
    "0 handleCANData() CTT_CONNECTED\n",
    "2 checkSingleFrame()  0x00000456 8  0x01 0x05" + zeros,
    "3 addReceivedData() canID=456\n",
    "1 sendFlowControl()  0x0000f923 8  0x33 0x00" + zeros,
    "1 sendCANMessage() CAN write to canProxyFD: CAN frame 0x123 [8] 33 00 00 00 00 00 00 00\n",
    "2 setSelectTimeout() select timeout set to 1.000000\n",
    // a request of one frame
    "1 handleData() CAN data received:  transport message 0x000, 1 bytes\n",
    "1 prepareData() single frame:   0x0000f923 8  0x01 0x07" + zeros,
    "1 sendCANMessage() CAN write to canProxyFD: CAN frame 0x123 [8] 01 07 00 00 00 00 00 00\n",
    "2 setSelectTimeout() select timeout set to 1.000000\n",
    // its acknowledgement
    "2 handleCANData() CAN data received from the CAN proxy:  0x00000456 8  0x33 0x00" + zeros,
    "3 handleCANData() connected: 1\n",
    "2 checkFlowControl()  0x00000456 8  0x33 0x00" + zeros,
    "2 checkFlowControl() CTP_FC_ACKNOWLEDGE\n",
    "2 setSelectTimeout() select timeout set to 0.010000\n",
    // a request of several frames
    "1 handleData() CAN data received:  transport message 0x000, 8 bytes\n",
    "1 prepareData() consecutive frame:  \n",
    "1 sendCANMessage() CAN write to canProxyFD: CAN frame 0x123 [8] 10 08 00 00 00 00 00 00\n",
    "2 setSelectTimeout() select timeout set to 1.000000\n",
    // the first two frames of a message
    "2 handleCANData() CAN data received from the CAN proxy:  0x00000456 8  0x10 0x14" + zeros,
    "3 handleCANData() connected: 1\n",
    "2 checkFirstFrame()  0x00000456 8  0x10 0x14" + zeros,
    "3 addReceivedData() canID=456\n",
    "1 sendFlowControl()  0x0000f923 8  0x31 0x00" + zeros,
    "1 sendCANMessage() CAN write to canProxyFD: CAN frame 0x123 [8] 31 00 00 00 00 00 00 00\n",
    "2 setSelectTimeout() select timeout set to 1.000000\n",
    "2 handleCANData() CAN data received from the CAN proxy:  0x00000456 8  0x20 0x00" + zeros,
    "3 handleCANData() connected: 1\n",
    "2 checkConsecutiveFrame()  0x00000456 8  0x20 0x00" + zeros,
    "3 addReceivedData() canID=456\n",
    // nothing more comes
    "1 handleTimeout() state = RCTS_SENDING RCTS_RECEIVING RCTS_WAIT_FOR_FC \n",
    "1 sendFlowControl()  0x0000f923 8  0x32 0x00" + zeros,
    "1 sendCANMessage() CAN write to canProxyFD: CAN frame 0x123 [8] 32 00 00 00 00 00 00 00\n",
    "0 handleTimeout() CTT_RECEIVE_TIMEOUT\n",
    "1 handleSendError() state = RCTS_SENDING RCTS_WAIT_FOR_FC \n",
    "0 handleSendError() send retry = 0\n",
    "1 sendCANMessage() CAN write to canProxyFD: CAN frame 0x123 [8] 10 08 00 00 00 00 00 00\n",
    "2 setSelectTimeout() select timeout set to 1.000000\n",
    "2 setSelectTimeout() select timeout set to 1.000000\n",
    // the client clears, and rest comes
    "1 clear() state = RCTS_IDLE\n",
    "3 threadCode() timeout set to 0\n",
    "2 setSelectTimeout() select timeout set to 0.000000\n",
};

} // namespace

TEST(Log, tellsEachStepFromItsLevelOn)
{
    for (const char level : {'0', '1', '2', '3'}) {
        LogCapture log;
        Endpoint endpoint(level - '0');
        endpoint.setSendCANid(0xF923);
        std::cout << std::hex << std::showbase << std::setfill('*');
        endpoint.frame({0x01, 5});
        endpoint.request({7});
        endpoint.flowControl(3);
        endpoint.request(Bytes(8));
        endpoint.framesOf(Bytes(20), 0, 2);
        endpoint.expire();
        endpoint.clear(true);
        CANTransportThreadAccess::restIfIdle(endpoint);
        std::string expected;
        for (const std::string& line : story) {
            if (line[0] <= level) {
                const std::string tag = line[0] == '0' ? "[INFO] " : "[DEBUG] ";
                expected += tag + "CANTransportThread::" + line.substr(2);
            }
        }
        std::cout << 10; // what the client has set is there again
        EXPECT_EQ(log.out(), expected + "0xa");
        std::cout << std::dec << std::noshowbase << std::setfill(' ');
    }
}

TEST(Log, aStreamThatThrowsStopsNothing)
{
    struct Failing : std::stringbuf {
        int sync() override { throw 1; }
    } sink;
    std::streambuf* const previous = std::cout.rdbuf(&sink);
    std::cout.exceptions(std::ios_base::badbit);
    {
        Endpoint endpoint(3);
        endpoint.request({7});
        EXPECT_EQ(endpoint.sent(), Lines{"01 07 00 00 00 00 00 00"});
    }
    EXPECT_THROW(std::cout.clear(std::ios_base::badbit), std::ios_base::failure) << "as it was";
    std::cout.exceptions(std::ios_base::goodbit);
    std::cout.rdbuf(previous);
}

TEST(Log, textOfTheState)
{
    const std::pair<int, const char*> rows[] = {
        {0, "RCTS_IDLE"},
        {8, "UNKNWON (0x8)"},
        {0x1F, "RCTS_SENDING RCTS_RECEIVING RCTS_WAIT_FOR_FC UNKNWON (0x1f)"},
        {-8, ""},
    };
    for (const auto& [value, text] : rows) {
        EXPECT_EQ(CANTransportThreadAccess::printState(value), text);
    }
}

TEST(Log, statusesAndFramesKeepTheFormatOfTheStream)
{
    std::ostringstream text;
    text << std::setfill('*') << std::showbase << std::uppercase << std::oct;
    text << CANTransportThread::CTT_CONNECTED << ' ' << CANTransportThread::CTT_RECEIVE_TIMEOUT
         << ' ' << static_cast<CANTransportThread::statuschange_t>(5) << ' '
         << static_cast<CANTransportThread::statuschange_t>(-1) << '\n';
    text << CANTransportThread::TPCANMsg{0x123, 8, {0x33, 0xAB}} << '\n';
    text << CANTransportThread::TPCANMsg{0x123, 0, {0x33}} << '\n';
    text << std::setw(5) << 8;
    EXPECT_EQ(text.str(), "CTT_CONNECTED CTT_RECEIVE_TIMEOUT ERROR ERROR\n"
                          " 0x00000123 8  0x33 0xab 0x00 0x00 0x00 0x00 0x00 0x00\n"
                          " 0x00000123 0\n"
                          "**010");
}
