// SPDX-License-Identifier: MIT
#include "RequestQueue.h"

#include "client/Waiting.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <future>
#include <new>
#include <thread>

#include <pthread.h>

namespace {

using Bytes = CANTransportClient::Bytes;
using Status = CANTransportClient::StatusChange;
using namespace std::chrono_literals;
constexpr auto longPatience = 1h;

/// A queue that the test uses from both sides.
struct Desk {
    explicit Desk(std::size_t length = 8, std::chrono::milliseconds patience = longPatience)
    {
        options.queueLength = length;
        options.patience = patience;
        queue = std::make_unique<RequestQueue>("a bus", options, wakeup, tally);
        queue->open();
    }
    /// Returns when the request waits.
    std::future<Result> send(Clock::time_point latest = never)
    {
        auto result =
            std::async(std::launch::async, [this, latest] { return queue->send({1}, latest); });
        isReadable(wakeup.descriptor(), -1);
        wakeup.clear();
        return result;
    }
    bool handOver() { return queue->handOver(bytes, deadline); }
    void deliver(unsigned char first) const { queue->deliver({1, {first}}); }
    bool wasWoken() const
    {
        const bool woken = isReadable(wakeup.descriptor());
        wakeup.clear();
        return woken;
    }
    /// As an event loop sees it, which asks for the descriptor once.
    bool readable() const
    {
        descriptor = descriptor == -1 ? queue->descriptor() : descriptor;
        return isReadable(descriptor);
    }
    /// The next event, if descriptor() agrees with it.
    template <typename Kind> std::optional<Kind> next() const
    {
        const bool isThere = readable();
        const auto event = queue->next();
        EXPECT_EQ(isThere, event.has_value());
        const auto* const kind = event ? std::get_if<Kind>(&*event) : nullptr;
        return kind != nullptr ? std::make_optional(*kind) : std::nullopt;
    }
    Result outcome() const { return next<CANTransportClient::Outcome>().value().result; }
    int message() const { return next<CANTransportClient::Message>().value().bytes.at(0); }
    bool hasNothing() const { return !readable() && !queue->next().has_value(); }

    CANTransportClient::Options options;
    Wakeup wakeup;
    Tally tally;
    std::unique_ptr<RequestQueue> queue;
    mutable int descriptor = -1;
    Bytes bytes;
    Clock::time_point deadline{};
};

} // namespace

TEST(RequestQueue, endsEachRequestOnceAndNotItsSuccessor)
{
    using End = std::function<void(RequestQueue&)>;
    const auto finish = [](Result result) -> End { return [=](auto& q) { q.finish(result); }; };
    const End expire = [](auto& q) { q.expire(Clock::now() + longPatience); };
    const End cancel = [](auto& q) { q.endAll(Result::cancelled); };
    const End lose = [](auto& q) { q.lose(); };
    const End close = [](auto& q) { q.close(); };
    const struct {
        bool handedOver;
        std::chrono::milliseconds patience;
        End end;
        Result result;
        bool withdrawn;
    } cases[] = {
        {true, longPatience, finish(Result::acknowledged), Result::acknowledged, false},
        {true, longPatience, finish(Result::refused), Result::refused, false},
        {false, longPatience, cancel, Result::cancelled, false},
        {true, longPatience, cancel, Result::cancelled, true},
        {false, 20ms, expire, Result::expired, false},
        {true, 20ms, expire, Result::expired, true},
        {false, longPatience, lose, Result::busLost, false},
        {true, longPatience, close, Result::busLost, true},
    };
    for (const auto& entry : cases) {
        for (const bool waits : {true, false}) {
            SCOPED_TRACE("case " + std::to_string(&entry - cases) + (waits ? " in send()" : ""));
            Desk desk(8, entry.patience);
            std::future<Result> result;
            if (waits) {
                result = desk.send();
            } else {
                EXPECT_TRUE(desk.queue->submit({1}, never));
                EXPECT_TRUE(desk.wasWoken());
            }
            EXPECT_EQ(entry.handedOver && desk.handOver(), entry.handedOver);
            EXPECT_TRUE(!waits || result.wait_for(0s) == std::future_status::timeout);
            entry.end(*desk.queue);
            EXPECT_EQ(waits ? result.get() : desk.outcome(), entry.result);
            EXPECT_EQ(desk.queue->isWithdrawn(), entry.withdrawn);
            EXPECT_EQ(desk.wasWoken(), entry.withdrawn);
            const bool good = entry.result == Result::acknowledged;
            EXPECT_EQ(desk.tally.messagesSent, good ? 1U : 0U);
            EXPECT_EQ(desk.tally.messagesFailed, good ? 0U : 1U);
            EXPECT_FALSE(desk.handOver());
            desk.queue->lose();
            desk.queue->open();
            desk.queue->submit({2}, Clock::now() + longPatience);
            desk.queue->finish(Result::acknowledged); // late
            EXPECT_FALSE(desk.queue->isWithdrawn());
            EXPECT_TRUE(desk.hasNothing());
            EXPECT_TRUE(desk.handOver());
            EXPECT_EQ(desk.bytes, Bytes{2});
            desk.queue->finish(Result::noAnswer);
            EXPECT_EQ(desk.outcome(), Result::noAnswer);
        }
    }
}

TEST(RequestQueue, takesOnlyWhatCanBeSent)
{
    Desk desk;
    const auto past = Clock::now();
    for (const std::size_t size : {0U, 4096U}) {
        EXPECT_THROW(desk.queue->send(Bytes(size), never), VelkException);
        EXPECT_THROW(desk.queue->submit(Bytes(size), never), VelkException);
    }
    EXPECT_EQ(desk.queue->send({1}, past), Result::expired);
    EXPECT_EQ(desk.queue->submit({1}, past), 1U);
    EXPECT_EQ(desk.outcome(), Result::expired);
    EXPECT_FALSE(desk.wasWoken() || desk.handOver());
    const auto soon = Clock::now() + 1min;
    desk.queue->submit(Bytes(4095), soon + 1s);
    desk.queue->submit({1}, soon);
    desk.queue->submit({1}, never);
    EXPECT_EQ(desk.queue->expire(soon - 1s), soon);
    EXPECT_EQ(desk.queue->expire(soon), soon + 1s) << "an expired one is withdrawn";
    EXPECT_TRUE(desk.handOver());
    EXPECT_EQ(desk.deadline, soon + 1s);
    desk.queue->lose();
    EXPECT_EQ(desk.queue->expire(soon), never);
    for (const auto expected : {Result::expired, Result::busLost, Result::busLost}) {
        EXPECT_EQ(desk.outcome(), expected);
    }
    EXPECT_EQ(desk.queue->send({1}, never), Result::busLost);
    EXPECT_EQ(desk.queue->submit({1}, never), 5U);
    EXPECT_EQ(desk.outcome(), Result::busLost);
    EXPECT_TRUE(desk.next<CANTransportClient::Loss>());
    EXPECT_TRUE(desk.hasNothing());
}

TEST(RequestQueue, hasADescriptorThatIsReadableWhileThereIsAnEvent)
{
    Desk desk;
    const auto change = [&](unsigned short value) {
        desk.queue->report({CANTransportThread::CTT_ACKNOWLEDGED, value});
    };
    change(3); // nobody waits for events yet
    EXPECT_EQ(desk.next<Status>().value().value, 3);
    desk.deliver(1);
    change(7);
    std::size_t taken = 0;
    while (desk.queue->submit({1}, never)) {
        ++taken;
    }
    EXPECT_EQ(taken, CANTransportClient::maxSubmitted);
    desk.queue->lose();
    desk.queue->lose();
    EXPECT_FALSE(desk.queue->submit({1}, never)) << "the outcomes are still to be taken";
    for (CANTransportClient::Ticket ticket = 1; ticket <= taken; ++ticket) {
        EXPECT_EQ(desk.next<CANTransportClient::Outcome>().value().ticket, ticket);
    }
    EXPECT_EQ(desk.next<Status>().value().value, 7);
    EXPECT_EQ(desk.message(), 1);
    EXPECT_TRUE(desk.next<CANTransportClient::Loss>());
    EXPECT_TRUE(desk.hasNothing()) << "a loss is reported once";
    desk.queue->open();
    for (unsigned short value = 0; value < 70; ++value) {
        change(value);
    }
    EXPECT_EQ(desk.tally.statusChangesLeftOut, 6U);
    for (unsigned short value = 6; value < 70; ++value) {
        EXPECT_EQ(desk.next<Status>().value().value, value);
    }
    desk.queue->lose();
    desk.queue->open();
    EXPECT_TRUE(desk.hasNothing()) << "what is open again is not lost";
    desk.deliver(2);
    EXPECT_TRUE(desk.queue->receive(0ms));
    EXPECT_TRUE(desk.hasNothing());
    desk.queue->submit({1}, never);
    EXPECT_TRUE(desk.handOver());
    desk.queue->finish(Result::refused);
    EXPECT_EQ(desk.outcome(), Result::refused);
    desk.queue->submit({1}, never);
    desk.queue->expire(Clock::now() + 2 * longPatience);
    EXPECT_EQ(desk.outcome(), Result::expired);
}

TEST(RequestQueue, holdsMessagesUpToItsLengthAndWakesTheMoverWhenThereIsRoom)
{
    for (const std::size_t length : {1U, 3U}) {
        Desk desk(length);
        for (std::size_t i = 0; i < length; ++i) {
            EXPECT_TRUE(desk.queue->hasRoom());
            desk.deliver(static_cast<unsigned char>(i));
        }
        EXPECT_FALSE(desk.queue->hasRoom());
        desk.deliver(99); // of an endpoint that ends
        EXPECT_EQ(desk.message(), 0);
        EXPECT_TRUE(desk.wasWoken() && desk.queue->hasRoom(1)) << "beside an own message";
        EXPECT_FALSE(desk.queue->hasRoom());
        EXPECT_EQ(desk.queue->receive(0ms)->bytes.at(0), length == 1 ? 99 : 1);
        EXPECT_TRUE(desk.wasWoken() && desk.queue->hasRoom());
        desk.deliver(98);
        EXPECT_EQ(desk.message(), length == 1 ? 98 : 2);
        EXPECT_TRUE(desk.wasWoken());
        EXPECT_EQ(desk.tally.messagesReceived, length + 2);
    }
    EXPECT_TRUE(Desk(SIZE_MAX).queue->hasRoom(1));
    Desk deaf(0);
    EXPECT_TRUE(deaf.queue->hasRoom());
    deaf.deliver(1);
    EXPECT_TRUE(deaf.queue->hasRoom() && deaf.hasNothing());
    EXPECT_EQ(deaf.tally.messagesReceived, 1U);
}

TEST(RequestQueue, wakesAReceiverForEachMessageAndAllAtTheEnd)
{
    Desk desk;
    EXPECT_FALSE(desk.queue->receive(1ms));
    std::atomic<int> sum{0};
    const auto receive = [&] {
        try {
            const auto message = desk.queue->receive(std::chrono::milliseconds::max());
            sum += message ? message->bytes.at(0) : 1000;
        } catch (const CANTransportClient::BusLost& loss) {
            EXPECT_STREQ(loss.what(), "a bus: the bus is lost");
            sum += 100;
        }
    };
    const auto sumAfter = [&](const std::function<void()>& wake) {
        desk.queue->open();
        sum = 0;
        std::thread receivers[] = {startAndWait(receive), startAndWait(receive),
                                   startAndWait(receive)};
        wake();
        for (std::thread& receiver : receivers) {
            receiver.join();
        }
        return sum.load();
    };
    const auto deliver = [&] {
        desk.deliver(1);
        desk.deliver(2);
        desk.deliver(4);
    };
    EXPECT_EQ(sumAfter(deliver), 7);
    EXPECT_EQ(sumAfter([&] { desk.queue->lose(); }), 300);
    EXPECT_EQ(sumAfter([&] { desk.queue->close(); }), 3000);
}

TEST(RequestQueue, outlivesItsCallersAndForgetsThoseThatAreCancelled)
{
    // AddressSanitizer reports the destructors that run while a cancelled thread is unwound.
    for (const bool handedOver :
         VELK_TEST_CANCELS ? std::vector{false, true} : std::vector<bool>{}) {
        Desk desk;
        std::thread sender([&] { desk.queue->send({1}, never); });
        isReadable(desk.wakeup.descriptor(), -1);
        EXPECT_EQ(handedOver && desk.handOver(), handedOver);
        pthread_cancel(sender.native_handle());
        sender.join();
        EXPECT_EQ(desk.queue->isWithdrawn(), handedOver);
        EXPECT_FALSE(desk.handOver());
        desk.queue->close(); // or it would wait for the one that has gone
    }
    Desk desk(1);
    desk.deliver(1);
    std::thread receiver([&] {
        pthread_cancel(pthread_self());
        desk.queue->receive(0ms);
        desk.deliver(2); // it has not been ended between taking and returning
    });
    receiver.join();
    EXPECT_EQ(desk.message(), 2);

    alignas(RequestQueue) unsigned char place[sizeof(RequestQueue)];
    auto* const queue = new (place) RequestQueue("a bus", desk.options, desk.wakeup, desk.tally);
    queue->open();
    std::vector<std::thread> callers;
    for (int i = 0; i < 8; ++i) {
        callers.push_back(
            startAndWait([&] { EXPECT_EQ(queue->send({1}, never), Result::busLost); }));
        callers.push_back(startAndWait([&] { EXPECT_FALSE(queue->receive(1h)); }));
    }
    queue->close();
    queue->~RequestQueue();
    std::memset(place, 0xFF, sizeof place);
    for (std::thread& caller : callers) {
        caller.join();
    }
}
