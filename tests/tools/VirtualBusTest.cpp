// SPDX-License-Identifier: MIT
#include "bus/VirtualBus.h"

#include "SocketLink.h"
#include "Tally.h"
#include "client/Waiting.h"
#include "tools/TemporaryBus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <future>
#include <map>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>

using namespace std::chrono_literals;

namespace {

/// A connection to the bus without a client.
class Node {
public:
    explicit Node(const TemporaryBus& bus) : link(connectTo(bus.path(), tally))
    {
        const int room = 1 << 17; // so that many frames wait
        setsockopt(link->descriptor(), SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
        fcntl(link->descriptor(), F_SETFL, 0); // send() waits for room
    }

    void send(std::uint32_t canID, std::uint8_t first) const
    {
        EXPECT_EQ(link->send({canID, 8, {first}}), Link::Sent::done);
    }
    /// Waits for `count` frames. @return their ids and first bytes.
    std::vector<std::pair<std::uint32_t, int>> receive(std::size_t count) const
    {
        std::vector<Link::Frame> frames;
        while (frames.size() < count) {
            isReadable(link->descriptor(), -1);
            link->receive(frames, count - frames.size());
        }
        std::vector<std::pair<std::uint32_t, int>> heads;
        heads.reserve(frames.size());
        for (const Link::Frame& frame : frames) {
            heads.emplace_back(frame.canID, frame.data[0]);
        }
        return heads;
    }

private:
    Tally tally;
    std::unique_ptr<Link> link;
};

void waitForNodes(const TemporaryBus& bus, std::uint64_t count)
{
    waitUntil([&] { return bus.counters().nodes == count; });
}

} // namespace

TEST(VirtualBus, carriesFramesInOneOrderToTwoHundredNodes)
{
    VirtualBus::Options options;
    options.nodes = 200;
    const TemporaryBus bus(options);
    std::deque<Node> nodes;
    while (nodes.size() < 200) {
        nodes.emplace_back(bus);
    }
    waitForNodes(bus, 200);
    for (std::uint8_t i = 0; i < 20; ++i) {
        for (std::uint32_t id = 0; id < 3; ++id) {
            nodes[id].send(id, i);
        }
    }
    const auto all = nodes[3].receive(60);
    std::map<std::uint32_t, int> next;
    for (const auto& [id, number] : all) {
        EXPECT_EQ(number, next[id]++);
    }
    for (std::size_t i = 4; i < nodes.size(); ++i) {
        ASSERT_EQ(nodes[i].receive(60), all);
    }
    for (const auto& [id, number] : nodes[0].receive(40)) {
        EXPECT_NE(id, 0U) << "receives its own frames";
    }
}

TEST(VirtualBus, aNodeThatDoesNotReadMissesTheOldestFramesAndKeepsTheOrder)
{
    VirtualBus::Options options;
    options.queueLength = 4;
    const TemporaryBus bus(options);
    const Node sender(bus);
    const Node idle(bus);
    const Node reader(bus);
    waitForNodes(bus, 3);
    std::uint32_t sent = 0;
    while (bus.counters().overflowDrops == 0) {
        sender.send(++sent, 0);
        EXPECT_EQ(reader.receive(1)[0].first, sent);
    }
    waitUntil([&] { return bus.counters().carried == sent; });
    const std::uint64_t missed = bus.counters().overflowDrops;
    const auto late = idle.receive(sent - missed);
    const auto numberAt = [&](std::size_t i) { return late[i].first; };
    EXPECT_EQ(numberAt(0), 1U);
    EXPECT_EQ(numberAt(late.size() - 1), sent);
    for (std::size_t i = 1; i < late.size(); ++i) {
        const std::uint64_t step = numberAt(i) - numberAt(i - 1);
        ASSERT_TRUE(step == 1 || step == missed + 1) << step;
    }
}

TEST(VirtualBus, givesAFloodingNodeShortTurnsAndARestWhileOthersSend)
{
    std::promise<void> bothHaveSent;
    std::vector<std::uint32_t> order;
    VirtualBus::Options options;
    options.observer = [&](const CANFrame& frame, VirtualBus::Fate) {
        if (order.empty()) {
            bothHaveSent.get_future().wait();
        }
        order.push_back(frame.canID);
    };
    const TemporaryBus bus(options);
    const Node flooding(bus);
    const Node honest(bus);
    waitForNodes(bus, 2);
    constexpr std::uint64_t flood = 100;
    for (std::uint64_t i = 0; i < flood; ++i) {
        flooding.send(7, 0);
    }
    honest.send(1, 0);
    bothHaveSent.set_value();
    waitUntil([&] { return bus.counters().carried == flood + 1; });
    const auto at = std::find(order.begin(), order.end(), 1U) - order.begin();
    EXPECT_LE(at, 2 * static_cast<std::ptrdiff_t>(VirtualBus::framesInATurn(2)));

    Rest rest;
    const Rest::Clock::time_point start{};
    EXPECT_FALSE(rest.sharesTheBus(1, start)) << "alone";
    EXPECT_FALSE(rest.sharesTheBus(1, start)) << "still alone";
    EXPECT_TRUE(rest.sharesTheBus(2, start));
    EXPECT_TRUE(rest.sharesTheBus(2, start + Rest::memory));
    EXPECT_FALSE(rest.sharesTheBus(2, start + Rest::memory + 1ms)) << "alone again";
}

TEST(VirtualBus, acceptsANodeWhileOthersNeverPause)
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
    const Node late(bus);
    late.receive(1);
    done = true;
    one.join();
    other.join();
}
