#include "bus/VirtualBus.h"

#include "velk/TraceMessageBuffer.h"
#include "velk/VelkException.h"

#include "tools/TemporaryBus.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>

namespace {

/// A connection to the bus without a client.
class Node {
public:
    explicit Node(const TemporaryBus& bus) : socket(::socket(AF_UNIX, SOCK_SEQPACKET, 0))
    {
        sockaddr_un address{AF_UNIX, {}};
        bus.path().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        buffer = std::make_unique<TraceMessageBuffer>(socket.get(), nullptr);
    }

    void send(std::uint32_t canID, std::uint8_t first) const
    {
        std::vector<unsigned char> record;
        serialise({canID, 8, {first}}, record);
        sendBytes(record);
    }
    void sendBytes(const std::vector<unsigned char>& bytes) const
    {
        EXPECT_NE(::send(socket.get(), bytes.data(), bytes.size(), 0), -1);
    }
    /// Waits for `count` frames. @return their ids and first bytes.
    std::vector<std::pair<std::uint32_t, int>> receive(std::size_t count)
    {
        std::vector<std::pair<std::uint32_t, int>> frames;
        while (frames.size() < count) {
            TraceRecord::View record;
            if (buffer->getNextRecord(record)) {
                const CANFrame frame = frameOf(record).value();
                frames.emplace_back(frame.canID, frame.data[0]);
            } else {
                buffer->read();
            }
        }
        return frames;
    }

private:
    Descriptor socket;
    std::unique_ptr<TraceMessageBuffer> buffer;
};

void waitForNodes(const TemporaryBus& bus, std::uint64_t count)
{
    while (bus.counters().nodes < count) {
        std::this_thread::yield();
    }
}

} // namespace

TEST(VirtualBus, carriesFramesInOneOrderToTwoHundredNodes)
{
    constexpr std::uint8_t framesOfEach = 20;
    constexpr std::size_t senders = 3;
    const TemporaryBus bus;
    std::vector<std::unique_ptr<Node>> nodes;
    for (std::size_t i = 0; i < 200; ++i) {
        nodes.push_back(std::make_unique<Node>(bus));
    }
    waitForNodes(bus, 200);
    for (std::uint8_t i = 0; i < framesOfEach; ++i) {
        for (std::uint32_t id = 0; id < senders; ++id) {
            nodes[id]->send(id, i);
        }
    }
    const auto all = nodes[senders]->receive(senders * framesOfEach);
    std::map<std::uint32_t, int> next;
    for (const auto& [id, number] : all) {
        EXPECT_EQ(number, next[id]++);
    }
    for (std::size_t i = senders + 1; i < nodes.size(); ++i) {
        ASSERT_EQ(nodes[i]->receive(all.size()), all);
    }
    for (const auto& [id, number] : nodes[0]->receive((senders - 1) * framesOfEach)) {
        EXPECT_NE(id, 0U) << "receives its own frames";
    }
}

TEST(VirtualBus, dropsOnlyForANodeThatDoesNotReadAndKeepsTheOrder)
{
    VirtualBus::Options options;
    options.queueLength = 4;
    const TemporaryBus bus(options);
    const Node sender(bus);
    Node idle(bus);
    Node reader(bus);
    waitForNodes(bus, 3);
    std::size_t sent = 0;
    while (bus.counters().overflowDrops == 0) {
        sender.send(1, static_cast<std::uint8_t>(sent++));
        EXPECT_EQ(reader.receive(1)[0].second, static_cast<std::uint8_t>(sent - 1));
    }
    while (bus.counters().carried < sent) {
        std::this_thread::yield();
    }
    const auto late = idle.receive(sent - bus.counters().overflowDrops);
    for (std::size_t i = 0; i < late.size(); ++i) {
        ASSERT_EQ(late[i].second, static_cast<std::uint8_t>(i));
    }
}

TEST(VirtualBus, nodesThatNeverPauseDoNotBlockOthers)
{
    VirtualBus::Options slow; // so that frames always wait
    slow.observer = [](const CANFrame&, VirtualBus::Fate) { usleep(100); };
    const TemporaryBus bus(slow);
    std::atomic<bool> done{false};
    const auto sendAlways = [&] {
        for (const Node node(bus); !done;) {
            node.send(1, 0);
        }
    };
    std::thread one(sendAlways);
    std::thread other(sendAlways);
    waitForNodes(bus, 2);
    Node late(bus);
    late.receive(1);
    done = true;
    one.join();
    other.join();
}

TEST(VirtualBus, survivesALostNodeBytesThatAreNoFrameAndEmptyPackets)
{
    TemporaryBus bus;
    const Node sender(bus);
    Node listener(bus);
    auto gone = std::make_unique<Node>(bus);
    waitForNodes(bus, 3);
    gone->send(1, 6);
    gone.reset();
    sender.sendBytes({1, 2, 3});
    for (int i = 0; i < 1000; ++i) { // so that the bus finds several in a row
        sender.sendBytes({});
    }
    sender.send(1, 7);
    const auto frames = listener.receive(2); // in either order
    EXPECT_EQ(frames[0].second + frames[1].second, 6 + 7);
    while (bus.counters().unreadable == 0) { // counted before the bus waits again
        std::this_thread::yield();
    }
    VirtualBus::Options other;
    EXPECT_THROW(VirtualBus(bus.path(), other), VelkException) << "another bus has the socket";
}
