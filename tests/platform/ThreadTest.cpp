#include "velk/Thread.h"

#include "velk/CancellableScope.h"
#include "velk/Millisleep.h"
#include "velk/VelkException.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <future>
#include <stdexcept>

#include <unistd.h>

namespace {

/// A thread whose body is given as a function.
class Worker : public Thread {
public:
    explicit Worker(std::function<void()> function) : body(std::move(function)) {}
    ~Worker() override { stop(); }

private:
    void threadCode() override { body(); }
    std::function<void()> body;
};

void blockForEver()
{
    const CancellableScope cancellable;
    pause();
}

} // namespace

TEST(Thread, stopEndsABlockedBodyAndUnwindsIt)
{
    std::promise<void> entered;
    bool unwound = false;
    Worker worker([&] {
        const std::shared_ptr<void> guard(nullptr, [&](void*) { unwound = true; });
        entered.set_value();
        blockForEver();
    });
    worker.start();
    entered.get_future().wait();
    EXPECT_TRUE(worker.running());
    EXPECT_THROW(worker.start(), VelkException);
    worker.stop();
    EXPECT_TRUE(unwound);
    EXPECT_FALSE(worker.running());
}

TEST(Thread, stopIsHarmlessOnAThreadThatNeverRanOrHasEnded)
{
    std::promise<void> ran;
    Worker worker([&] { ran.set_value(); });
    worker.stop();
    worker.start();
    ran.get_future().wait();
    worker.stop();
    worker.stop();
    EXPECT_FALSE(worker.running());
}

TEST(Thread, refusesToStopOrStartItself)
{
    std::promise<int> refusals;
    Worker worker([&] {
        int count = 0;
        try {
            worker.stop();
        } catch (const VelkException&) {
            ++count;
        }
        try {
            worker.start();
        } catch (const VelkException&) {
            ++count;
        }
        refusals.set_value(count);
        blockForEver();
    });
    worker.start();
    EXPECT_EQ(refusals.get_future().get(), 2);
}

TEST(Thread, anExceptionIsLoggedAndTheBodyEnteredAgain)
{
    LogCapture log;
    std::promise<void> third;
    int entries = 0;
    Worker worker([&] {
        switch (++entries) {
        case 1:
            throw std::runtime_error("first");
        case 2:
            throw 2;
        default:
            third.set_value();
            blockForEver();
        }
    });
    worker.start();
    third.get_future().wait();
    worker.stop();
    EXPECT_EQ(log.err(),
              "[ERROR] Thread::threadCode() left by an exception: first\n"
              "[ERROR] Thread::threadCode() left by an exception: not a std::exception\n");
}

TEST(Thread, blocksSigpipeAloneAndOnlyForItself)
{
    std::promise<sigset_t> inside;
    Worker worker([&] {
        sigset_t signals;
        pthread_sigmask(SIG_SETMASK, nullptr, &signals);
        inside.set_value(signals);
    });
    worker.start();
    sigset_t thread = inside.get_future().get();
    sigset_t own;
    pthread_sigmask(SIG_SETMASK, nullptr, &own);
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
        EXPECT_EQ(sigismember(&thread, signal), signal == SIGPIPE ? 1 : sigismember(&own, signal));
    }
    EXPECT_EQ(sigismember(&own, SIGPIPE), 0);
}

TEST(Thread, aStopWaitsForTheNextCancellableScope)
{
    std::promise<void> entered;
    bool untouched = false;
    Worker worker([&] {
        entered.set_value();
        millisleep(20); // a cancellation point, but for the rule
        untouched = true;
        blockForEver();
    });
    worker.start();
    entered.get_future().wait();
    worker.stop();
    EXPECT_TRUE(untouched);
}
