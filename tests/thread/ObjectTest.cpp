#include "velk/CANTransportThread.h"

#include "velk/VelkException.h"

#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

int openDescriptors()
{
    int count = 0;
    DIR* directory = opendir("/proc/self/fd");
    while (readdir(directory) != nullptr) {
        ++count;
    }
    closedir(directory);
    return count;
}

/// Leaves room for `count` more descriptors while it lives.
class DescriptorLimit {
public:
    explicit DescriptorLimit(int count)
    {
        getrlimit(RLIMIT_NOFILE, &previous);
        const int lowestFree = dup(0);
        close(lowestFree);
        rlimit tight = previous;
        tight.rlim_cur = static_cast<rlim_t>(lowestFree) + static_cast<rlim_t>(count);
        setrlimit(RLIMIT_NOFILE, &tight);
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &previous); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    rlimit previous{};
};

} // namespace

TEST(CANTransportThread, openGivesTheClientItsTwoEnds)
{
    const int before = openDescriptors();
    {
        CANTransportThread endpoint;
        int reading = 0;
        int writing = 0;
        endpoint.getFileDescriptors(reading, writing);
        EXPECT_EQ(reading, -1);
        EXPECT_EQ(writing, -1);
        EXPECT_FALSE(endpoint.sendQueueEmpty());
        endpoint.open(reading, writing);
        EXPECT_EQ(fcntl(reading, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDONLY);
        EXPECT_EQ(fcntl(writing, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_WRONLY);
        EXPECT_TRUE(endpoint.sendQueueEmpty());
        EXPECT_THROW(endpoint.open(reading, writing), VelkException);
        EXPECT_EQ(openDescriptors(), before + 4);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(CANTransportThread, openFailsWithALineWhenDescriptorsRunOut)
{
    for (const int room : {0, 1, 2, 3}) {
        const int before = openDescriptors();
        LogCapture log;
        {
            CANTransportThread endpoint;
            int reading = 0;
            int writing = 0;
            const DescriptorLimit limit(room);
            EXPECT_THROW(endpoint.open(reading, writing), VelkException) << room;
            EXPECT_EQ(log.err(), "[ERROR] CANTransportThread::open() failed to open pipe: \n"
                                 "errno 24: Too many open files\n");
        }
        EXPECT_EQ(openDescriptors(), before) << room;
    }
}

TEST(CANTransportThread, textOfTheState)
{
    const std::pair<int, const char*> rows[] = {
        {0, "RCTS_IDLE"},
        {1, "RCTS_SENDING "},
        {7, "RCTS_SENDING RCTS_RECEIVING RCTS_WAIT_FOR_FC "},
        {8, "UNKNWON (0x8)"},
        {0x1F, "RCTS_SENDING RCTS_RECEIVING RCTS_WAIT_FOR_FC UNKNWON (0x1f)"},
        {-8, ""},
    };
    for (const auto& [value, text] : rows) {
        EXPECT_EQ(CANTransportThreadAccess::printState(value), text);
    }
}

TEST(CANTransportThread, statusesAndFramesKeepTheFormatOfTheStream)
{
    std::ostringstream text;
    text << std::setfill('*') << std::showbase << std::uppercase << std::oct;
    text << CANTransportThread::CTT_CONNECTED << ' ' << CANTransportThread::CTT_RECEIVE_TIMEOUT
         << ' ' << static_cast<CANTransportThread::statuschange_t>(5) << ' '
         << static_cast<CANTransportThread::statuschange_t>(-1) << '\n';
    text << CANTransportThread::TPCANMsg{0x123, 8, {0x33, 0xAB}} << '\n';
    text << CANTransportThread::TPCANMsg{0x123, 0, {0x33}} << '\n';
    text << std::setw(3) << 8;
    EXPECT_EQ(text.str(), "CTT_CONNECTED CTT_RECEIVE_TIMEOUT ERROR ERROR\n"
                          " 0x00000123 8  0x33 0xab 0x00 0x00 0x00 0x00 0x00 0x00\n"
                          " 0x00000123 0\n"
                          "010");
}
