// SPDX-License-Identifier: MIT
#include "Mover.h"

#include "client/Waiting.h"
#include "support/Endpoint.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace {

using Frame = Link::Frame;
using Sent = Link::Sent;
using T = CANTransportThread;
using namespace std::chrono_literals;

/// A bus by hand.
struct Wire {
    void put(const std::vector<Frame>& frames)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        toClient.insert(toClient.end(), frames.begin(), frames.end());
        event.set();
    }
    void end()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        ended = true;
        event.set();
    }
    /// From now on send() returns these one by one, and then the last one always.
    void reply(std::deque<Sent> results)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        replies = std::move(results);
    }

    std::mutex mutex;
    std::deque<Frame> toClient;
    std::deque<Frame> fromClient;
    std::deque<Sent> replies{Sent::done};
    std::vector<Clock::time_point> tries;
    bool ended = false;
    Wakeup event;
    std::atomic<int> waits{0};
};

class WireLink : public Link {
public:
    explicit WireLink(Wire& bus) : wire(bus) {}
    int descriptor() const override
    {
        ++wire.waits;
        return wire.event.descriptor();
    }
    Sent send(const Frame& frame) override
    {
        const std::lock_guard<std::mutex> lock(wire.mutex);
        const Sent result = wire.replies.front();
        if (wire.replies.size() > 1) {
            wire.replies.pop_front();
        }
        wire.tries.push_back(Clock::now());
        if (result == Sent::done) {
            wire.fromClient.push_back(frame);
        }
        return result;
    }
    bool receive(std::vector<Frame>& frames, std::size_t most) override
    {
        const std::lock_guard<std::mutex> lock(wire.mutex);
        for (; frames.size() < most && !wire.toClient.empty(); wire.toClient.pop_front()) {
            frames.push_back(wire.toClient.front());
        }
        if (wire.toClient.empty()) {
            wire.event.clear();
        }
        return !(wire.ended && wire.toClient.empty());
    }

private:
    Wire& wire;
};

/// A mover between a queue and a wire; the test is the callers and the bus.
struct Bench {
    explicit Bench(std::size_t queueLength = 100)
    {
        options.sendId = 1;
        options.receiveId = 2;
        options.queueLength = queueLength;
        options.statusHandler = [this](T::statuschange_t status, unsigned short) {
            statuses.push_back(status);
            throw std::runtime_error("of the program");
        };
        queue = std::make_unique<RequestQueue>("wire", options, wakeup, tally);
        connect();
    }
    void connect()
    {
        mover.reset();
        queue->open();
        mover = std::make_unique<Mover>(
            std::make_unique<WireLink>(wire),
            Mover::Surroundings{options, wakeup, *queue, filter, log, tally});
    }
    void put(std::initializer_list<std::uint8_t> data, std::uint32_t canID = 2, int times = 1)
    {
        Frame frame{canID, 8, {}};
        std::copy(data.begin(), data.end(), frame.data);
        wire.put(std::vector<Frame>(static_cast<std::size_t>(times), frame));
    }
    /// The first two bytes of the next frame that leaves.
    int taken()
    {
        std::optional<Frame> frame;
        waitUntil([&] {
            const std::lock_guard<std::mutex> lock(wire.mutex);
            if (!wire.fromClient.empty()) {
                frame = wire.fromClient.front();
                wire.fromClient.pop_front();
            }
            return frame.has_value();
        });
        EXPECT_EQ(frame->canID, 1U);
        EXPECT_EQ(frame->len, 8);
        return frame->data[0] << 8 | frame->data[1];
    }
    bool nothingLeaves()
    {
        std::this_thread::sleep_for(20ms);
        const std::lock_guard<std::mutex> lock(wire.mutex);
        return wire.fromClient.empty();
    }
    void submit(unsigned char first, Clock::time_point deadline = never) const
    {
        queue->submit({first}, deadline);
    }
    /// The next one; what comes before it is dropped.
    Result outcome() const
    {
        std::optional<CANTransportClient::Event> event;
        waitUntil([&] {
            event = queue->next();
            return event && std::holds_alternative<CANTransportClient::Outcome>(*event);
        });
        return std::get<CANTransportClient::Outcome>(*event).result;
    }
    void refuseAttempts(int first, int count = 5)
    {
        for (int i = 0; i < count; ++i) {
            EXPECT_EQ(taken(), first);
            put({0x30});
        }
    }
    /// Passes of the mover while nothing happens.
    int passesAtRest()
    {
        std::this_thread::sleep_for(30ms);
        const int before = wire.waits;
        std::this_thread::sleep_for(50ms);
        return wire.waits - before;
    }

    CANTransportClient::Options options;
    std::vector<T::statuschange_t> statuses;
    Wire wire;
    Wakeup wakeup;
    Tally tally;
    LogLimiter log{{}, tally};
    StatusFilter filter;
    std::unique_ptr<RequestQueue> queue;
    std::unique_ptr<Mover> mover;
};

} // namespace

TEST(Mover, movesBothWaysAndCounts)
{
    Bench bench;
    bench.put({0x21}, 2, 20); // of a message that an earlier endpoint had been receiving
    bench.put({0x01, 9}, 3);  // of another node
    bench.put({0x01, 8});
    EXPECT_EQ(bench.taken(), 0x3300) << "the first frame that leaves";
    EXPECT_EQ(bench.queue->receive(1h)->bytes, Bytes{8});
    bench.put({0x21}, 2, 2);
    EXPECT_EQ(bench.taken(), 0x3000) << "refused once a message has started, and once only";
    bench.put({0x33});
    bench.submit(5);
    bench.submit(6);
    EXPECT_EQ(bench.taken(), 0x0105);
    EXPECT_TRUE(bench.nothingLeaves()) << "one message at a time";
    bench.put({0x33});
    EXPECT_EQ(bench.outcome(), Result::acknowledged);
    EXPECT_EQ(bench.taken(), 0x0106);
    bench.put({0x33});
    EXPECT_EQ(bench.outcome(), Result::acknowledged);
    bench.put({0x10, 8, 1, 2, 3, 4, 5, 6});
    EXPECT_EQ(bench.taken(), 0x3100);
    bench.submit(7); // which does not end the reception
    bench.put({0x20, 7, 8});
    EXPECT_EQ(bench.queue->receive(1h)->bytes.size(), 8U);
    EXPECT_EQ(bench.taken(), 0x3300);
    EXPECT_EQ(bench.taken(), 0x0107);
    bench.put({0x33});
    EXPECT_EQ(bench.outcome(), Result::acknowledged);
    bench.connect();
    bench.put({0x31});
    waitUntil([&] { return bench.tally.framesReceived == 30; });
    bench.mover.reset();
    EXPECT_EQ(bench.tally.framesIgnored, 1U);
    EXPECT_EQ(bench.tally.framesDropped, 1U);
    EXPECT_EQ(bench.tally.framesSent, 7U);
    EXPECT_EQ(bench.tally.attempts, 3U);
    EXPECT_EQ(bench.tally.answersDropped, 2U);
    EXPECT_EQ(bench.statuses, (std::vector{T::CTT_CONNECTED, T::CTT_ACKNOWLEDGED,
                                           T::CTT_ACKNOWLEDGED, T::CTT_ACKNOWLEDGED}));
}

TEST(Mover, keepsTheEndpointForAWithdrawnMessageUntilItsOutcome)
{
    for (const int answer : {0x33, 0}) { // or none within a second
        Bench bench;
        bench.submit(1, Clock::now() + 30ms);
        EXPECT_EQ(bench.taken(), 0x0101);
        EXPECT_EQ(bench.outcome(), Result::expired);
        const auto start = Clock::now();
        bench.submit(2);
        EXPECT_LE(bench.passesAtRest(), 1);
        EXPECT_TRUE(bench.nothingLeaves());
        if (answer != 0) {
            bench.put({0x33});
        }
        int next = bench.taken();
        if (answer == 0) {
            EXPECT_GE(Clock::now() - start, 900ms);
            next = next == 0x0101 ? bench.taken() : next; // its second attempt was due
        }
        EXPECT_EQ(next, 0x0102);
        EXPECT_TRUE(bench.nothingLeaves());
        while (const auto event = bench.queue->next()) {
            EXPECT_TRUE(std::holds_alternative<CANTransportClient::StatusChange>(*event));
        }
        bench.put({0x33});
        EXPECT_EQ(bench.outcome(), Result::acknowledged);
    }
}

TEST(Mover, triesAMessageAgainThatABusyPeerHasRefused)
{
    Bench bench;
    for (unsigned char i = 1; i <= 2; ++i) { // the endpoint reports no second failure by itself
        bench.submit(i, Clock::now() + 1s);
        bench.refuseAttempts(0x0100 + i);
        EXPECT_EQ(bench.outcome(), Result::refused) << "it would be too late for another round";
    }
    const auto start = Clock::now();
    bench.submit(3);
    bench.refuseAttempts(0x0103);
    EXPECT_LE(bench.passesAtRest(), 1);
    bench.refuseAttempts(0x0103);
    EXPECT_GE(Clock::now() - start, 1050ms);
    bench.queue->endAll(Result::cancelled); // while it rests
    EXPECT_EQ(bench.outcome(), Result::cancelled);
    bench.submit(4);
    EXPECT_EQ(bench.taken(), 0x0104);
    bench.put({0x33});
    EXPECT_EQ(bench.outcome(), Result::acknowledged);
    bench.submit(5);
    EXPECT_EQ(bench.taken(), 0x0105);
    bench.queue->endAll(Result::cancelled); // with the endpoint
    EXPECT_EQ(bench.outcome(), Result::cancelled);
    bench.put({0x30});
    bench.refuseAttempts(0x0105, 4);
    bench.submit(6);
    EXPECT_EQ(bench.taken(), 0x0106) << "an abandoned message is not tried again";
    bench.mover.reset();
    EXPECT_EQ(bench.statuses, (std::vector{T::CTT_CONNECTED, T::CTT_ACKNOWLEDGED}));
}

TEST(Mover, waitsForTheBusToTakeFrames)
{
    Bench bench(1000); // room for all messages below
    bench.wire.reply({Sent::queueFull, Sent::queueFull, Sent::wouldBlock, Sent::done});
    bench.submit(1);
    EXPECT_EQ(bench.taken(), 0x0101);
    bench.put({0x33});
    EXPECT_EQ(bench.outcome(), Result::acknowledged);
    ASSERT_EQ(bench.wire.tries.size(), 4U);
    EXPECT_GE(bench.wire.tries[1] - bench.wire.tries[0], 500us);
    EXPECT_GE(bench.wire.tries[2] - bench.wire.tries[1], 500us);
    EXPECT_EQ(bench.tally.framesSent, 1U);
    EXPECT_EQ(bench.passesAtRest(), 0);
    bench.wire.reply({Sent::wouldBlock});
    bench.put({0x01, 5}, 2, 300); // one answer each: more than the gate holds
    std::this_thread::sleep_for(50ms);
    bench.wire.reply({Sent::done});
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(bench.taken(), 0x3300);
    }
    bench.submit(2);
    bench.wire.reply({Sent::lost});
    EXPECT_EQ(bench.outcome(), Result::busLost);
}

TEST(Mover, endsWhileTheBusTakesNoneOfManyAnswers)
{
    Bench bench(1000);
    bench.wire.reply({Sent::wouldBlock});
    bench.put({0x01, 5}, 2, 300);
    for (int i = 0; i < 64; ++i) { // as many answers as the gate holds
        EXPECT_TRUE(bench.queue->receive(1h));
    }
    bench.mover.reset();
}

TEST(Mover, holdsTheBusUpWhileNobodyTakesMessages)
{
    Bench bench(2);
    for (unsigned char number = 0; number < 4; ++number) {
        bench.put({0x01, number});
    }
    EXPECT_EQ(bench.passesAtRest(), 0);
    bench.put({0x01, 4});
    bench.submit(7);
    EXPECT_EQ(bench.passesAtRest(), 0);
    EXPECT_LT(bench.tally.framesReceived, 5U);
    for (unsigned char number = 0; number < 200; ++number) {
        EXPECT_EQ(bench.queue->receive(1h)->bytes, Bytes{number});
        bench.put({0x01, static_cast<std::uint8_t>(number + 5)});
    }
    bench.wire.end();
    for (unsigned char number = 200; number < 205; ++number) {
        EXPECT_EQ(bench.queue->receive(1h)->bytes, Bytes{number});
    }
    EXPECT_THROW(bench.queue->receive(1h), CANTransportClient::BusLost);
    EXPECT_EQ(bench.outcome(), Result::busLost);
    const auto acknowledged = [&] {
        const std::lock_guard<std::mutex> lock(bench.wire.mutex);
        return std::count_if(bench.wire.fromClient.begin(), bench.wire.fromClient.end(),
                             [](const Frame& frame) { return frame.data[0] == 0x33; });
    };
    EXPECT_EQ(acknowledged(), 205);
    bench.wire.ended = false;
    bench.connect();
    bench.put({0x01, 1}, 2, 1000);
    waitUntil([&] { return acknowledged() > 211; });
    bench.mover.reset(); // in the middle
    EXPECT_EQ(bench.tally.messagesReceived, static_cast<std::uint64_t>(acknowledged()));
}
