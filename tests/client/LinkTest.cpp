// SPDX-License-Identifier: MIT
#include "SocketLink.h"
#include "Tally.h"
#include "client/Waiting.h"
#include "tools/TemporaryBus.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>

namespace {

/// The record of a frame, which may be longer than a classic one.
std::string recordOf(std::uint8_t first, std::uint8_t length = 8)
{
    const unsigned char data[64] = {first};
    std::vector<unsigned char> bytes;
    CANExtTraceMessage(0x123, data, length).createByteArray(bytes, true, false);
    return {bytes.begin(), bytes.end()};
}

/// A socket link and the other end.
struct Line {
    explicit Line(int type)
    {
        int ends[2] = {};
        EXPECT_EQ(socketpair(AF_UNIX, type, 0, ends), 0);
        other = Descriptor(ends[1]);
        Descriptor own(ends[0]);
        if (type == SOCK_STREAM) {
            link = std::make_unique<StreamLink>(std::move(own), tally);
        } else {
            link = std::make_unique<PacketLink>(std::move(own), tally);
        }
    }
    void put(const std::string& bytes) const
    {
        EXPECT_NE(send(other.get(), bytes.data(), bytes.size(), 0), -1);
    }
    /// The first bytes of all frames that wait, and whether the bus is lost after them.
    std::string received()
    {
        std::string text;
        for (int quiet = 0; quiet < 8;) {
            frames.clear();
            const bool good = link->receive(frames, 2);
            quiet += frames.empty() ? 1 : 0;
            EXPECT_LE(frames.size(), 4U);
            for (const Link::Frame& frame : frames) {
                text += static_cast<char>(frame.data[0]);
            }
            if (!good) {
                return text + " end";
            }
        }
        return text;
    }

    Tally tally;
    Descriptor other;
    std::unique_ptr<SocketLink> link;
    std::vector<Link::Frame> frames;
};

int codeOfConnecting(const std::string& path)
{
    Tally tally;
    return thrownBy([&] { connectTo(path, tally); }).code;
}

} // namespace

TEST(SocketLink, takesFramesOutOfAnythingUpToTheEnd)
{
    for (const int type : {SOCK_SEQPACKET, SOCK_STREAM}) {
        Line line(type);
        EXPECT_EQ(line.received(), "");
        std::vector<unsigned char> request;
        CANTransportTraceMessage({1, 2}).createByteArray(request, true, false);
        for (const auto& record : {recordOf('a'), recordOf('b'), recordOf('c', 0)}) {
            line.put(record);
        }
        line.put(std::string(50, 'x'));
        line.put(std::string(request.begin(), request.end()));
        line.put(recordOf('-', 9));
        line.put("");
        line.put(recordOf('d', 3));
        EXPECT_EQ(line.received(), std::string("ab\0d", 4));
        EXPECT_EQ(line.tally.recordsUnusable, 3U);
        line.put(recordOf('e'));
        EXPECT_EQ(line.link->send({1, 8, {}}), Link::Sent::done);
        line.put("");
        for (const char first : {'f', 'g', 'h'}) {
            line.put(recordOf(static_cast<std::uint8_t>(first)));
        }
        line.other.reset(); // without having read all: a reset
        EXPECT_EQ(line.link->send({1, 8, {}}), Link::Sent::done) << "the end is seen by receiving";
        EXPECT_EQ(line.received(), "efgh end");
    }
    Line odd(SOCK_SEQPACKET);
    EXPECT_EQ(dup2(STDIN_FILENO, odd.link->descriptor()), odd.link->descriptor());
    EXPECT_EQ(odd.link->send({1, 8, {}}), Link::Sent::lost) << "no socket any more";
    EXPECT_EQ(odd.received(), " end");
}

TEST(SocketLink, sendsWholeRecordsAndFewBeyondReach)
{
    for (const int type : {SOCK_SEQPACKET, SOCK_STREAM}) {
        Line line(type);
        int count = 0;
        while (line.link->send({0x123, 8, {'a'}}) == Link::Sent::done) {
            ++count;
        }
        EXPECT_LE(count, 16);
        EXPECT_EQ(line.link->send({0x123, 8, {'b'}}), Link::Sent::wouldBlock);
        char record[100];
        for (int i = 0; i < count; ++i) {
            const auto expected = recordOf('a');
            EXPECT_EQ(recv(line.other.get(), record, expected.size(), 0), ssize_t{39});
            EXPECT_EQ(std::string(record, 39), expected);
        }
        EXPECT_EQ(line.link->send({0x123, 2, {'c'}}), Link::Sent::done);
        EXPECT_EQ(recv(line.other.get(), record, sizeof record, 0), ssize_t{33});
        EXPECT_EQ(std::string(record, 33), recordOf('c', 2));
    }
}

TEST(SocketLink, saysWhyThereIsNoBus)
{
    const TemporaryBus bus; // for its folder
    const std::string path = bus.path() + "2";
    EXPECT_EQ(codeOfConnecting(path), ENOENT);
    EXPECT_EQ(codeOfConnecting(std::string(107, 'x')), ENOENT);
    EXPECT_EQ(codeOfConnecting(std::string(108, 'x')), ENAMETOOLONG);
    const Descriptor listener = bindTo(path);
    EXPECT_EQ(codeOfConnecting(path), ECONNREFUSED);
    ASSERT_EQ(listen(listener.get(), 0), 0); // room for one that is not accepted
    Tally tally;
    const auto first = connectTo(path, tally);
    EXPECT_EQ(codeOfConnecting(path), ETIMEDOUT);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(codeOfConnecting(path), EMFILE);
    setrlimit(RLIMIT_NOFILE, &limit);
}
