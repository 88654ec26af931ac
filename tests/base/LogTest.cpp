// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"

#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <locale>
#include <optional>
#include <sstream>

namespace {

/// Does one step of the script: a word, and numbers in hexadecimal.
void play(Endpoint& endpoint, const std::string& step)
{
    std::istringstream words(step);
    std::string word;
    words >> word >> std::hex;
    const std::vector<unsigned int> numbers(std::istream_iterator<unsigned int>(words), {});
    if (word == "frame") {
        CANTransportThread::TPCANMsg frame{Endpoint::peerId, 8, {}};
        std::copy(numbers.begin(), numbers.end(), frame.data);
        endpoint.write(recordOf(frame));
    } else if (word == "request") {
        endpoint.write(bytesOf(CANTransportTraceMessage(pattern(numbers.at(0)))));
    } else if (word == "pass") {
        Access::pass(endpoint);
    } else if (word == "expire") {
        Access::expire(endpoint);
    } else if (word == "clear") {
        endpoint.clear(true);
    } else if (word == "deaf") {
        std::function<void(CANTransportThread::statuschange_t, unsigned short)> none;
        endpoint.setDelegate(none);
    } else {
        ASSERT_EQ(word, "rest");
        Access::restIfIdle(endpoint);
    }
}

/// As in a country that separates thousands.
struct Grouping : std::numpunct<char> {
    std::string do_grouping() const override { return "\3"; }
    char do_thousands_sep() const override { return '.'; }
};

} // namespace

TEST(Log, hasTheLinesOfTheScriptWhateverTheProgramHasSet)
{
    const std::locale previous =
        std::locale::global(std::locale(std::locale::classic(), new Grouping));
    for (const char level : {'0', '1', '2', '3'}) {
        LogCapture log;
        std::cout.imbue(std::locale());
        std::cout << std::hex << std::showbase << std::setfill('*') << std::setw(8);
        std::optional<Endpoint> endpoint;
        std::string expected;
        std::ifstream script(VELK_LOG_SCRIPT);
        for (std::string line; std::getline(script, line);) {
            if (line.substr(0, 2) == "#0" && level > '0') {
                break;
            }
            if (line.substr(0, 2) == "> ") {
                play(endpoint.value(), line.substr(2));
            } else if (line[0] == '#') {
                endpoint.emplace(level < '2' ? level - '0' : 0).setSendCANid(0xF923);
                if (level >= '2') {
                    endpoint->setDebugLevel(level - '0');
                }
            } else if (line[0] <= level) {
                const std::string tag = line[1] == '!'   ? "[ERROR] "
                                        : line[0] == '0' ? "[INFO] "
                                                         : "[DEBUG] ";
                expected +=
                    tag + "CANTransportThread::" + line.substr(2, line.find('|') - 2) + '\n';
            }
        }
        std::cout << 4096; // what the client has set is there again
        EXPECT_EQ(log.out(), expected + "*0x1.000");
        std::cout << std::dec << std::noshowbase << std::setfill(' ');
        std::cout.imbue(std::locale::classic());
    }
    std::locale::global(previous);
}

TEST(Log, aStreamThatThrowsStopsNothing)
{
    const FailingStreams streams;
    Endpoint endpoint(3);
    endpoint.breakClient();
    endpoint.frame({0x01, 5});
    endpoint.mendClient();
    endpoint.write(bytesOf(MessageBase(2)));
    endpoint.request({7});
    EXPECT_EQ(endpoint.sent(), (Lines{fc(2), "01 07 00 00 00 00 00 00"}));
}

TEST(Log, textOfAStateThatCannotBe)
{
    EXPECT_EQ(Access::printState(0x1F),
              "RCTS_SENDING RCTS_RECEIVING RCTS_WAIT_FOR_FC UNKNWON (0x1f)");
    EXPECT_EQ(Access::printState(-8), "");
}

TEST(Log, statusesAndFramesKeepTheFormatOfTheStream)
{
    std::ostringstream text;
    text << std::setfill('*') << std::showbase << std::uppercase << std::oct << std::setw(15);
    text << CANTransportThread::CTT_CONNECTED << ' ' << CANTransportThread::CTT_RECEIVE_TIMEOUT
         << ' ' << static_cast<CANTransportThread::statuschange_t>(5) << ' '
         << static_cast<CANTransportThread::statuschange_t>(-1) << '\n';
    text << std::setw(99) << CANTransportThread::TPCANMsg{0x123, 8, {0x33, 0xAB}} << '\n';
    text << CANTransportThread::TPCANMsg{0x123, 0, {0x33}} << '\n';
    text << std::setw(5) << 8;
    EXPECT_EQ(text.str(), "00CTT_CONNECTED CTT_RECEIVE_TIMEOUT ERROR ERROR\n"
                          " 0x00000123 8  0x33 0xab 0x00 0x00 0x00 0x00 0x00 0x00\n"
                          " 0x00000123 0\n"
                          "**010");
}
