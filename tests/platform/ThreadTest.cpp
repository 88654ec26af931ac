// SPDX-License-Identifier: MIT
#include "velk/Thread.h"

#include "velk/CancellableScope.h"
#include "velk/Millisleep.h"
#include "velk/VelkException.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <thread>

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

} // namespace

TEST(Thread, stopWaitsForTheNextCancellableScope)
{
    std::promise<void> entered;
    bool scopeReached = false;
    Worker worker([&] {
        entered.set_value();
        millisleep(20); // a cancellation point, but for the rule
        scopeReached = true;
        const CancellableScope cancellable;
        pause();
    });
    worker.stop();
    worker.start();
    EXPECT_TRUE(worker.running());
    EXPECT_THROW(worker.start(), VelkException);
    entered.get_future().wait();
    const auto stop = [&worker] {
        worker.stop();
        return !worker.running();
    };
    auto atTheSameTime = std::async(std::launch::async, stop);
    EXPECT_TRUE(stop());
    EXPECT_TRUE(atTheSameTime.get());
    EXPECT_TRUE(scopeReached);
}

TEST(Thread, aStartFreesWhatAThreadThatHasEndedLeft)
{
    const auto mappings = [] {
        std::ifstream maps("/proc/self/maps");
        return std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
    };
    Worker worker([] {});
    long before = 0;
    for (int round = 0; round < 60; ++round) {
        worker.start();
        while (worker.running()) {
            std::this_thread::yield();
        }
        before = round == 9 ? mappings() : before; // the first ones are kept for reuse
    }
    EXPECT_LT(mappings(), before + 50) << "each stack has a mapping";
}

TEST(Thread, anExceptionIsLoggedAndTheBodyEnteredAgain)
{
    LogCapture log;
    std::promise<void> last;
    int entries = 0;
    Worker worker([&] {
        switch (++entries) {
        case 1:
            worker.stop();
            [[fallthrough]];
        case 2:
            worker.start();
            [[fallthrough]];
        case 3:
            throw 3;
        default:
            last.set_value();
        }
    });
    worker.start();
    last.get_future().wait();
    worker.stop();
    worker.stop();
    EXPECT_FALSE(worker.running());
    const std::string line = "[ERROR] Thread::threadCode() left by an exception: ";
    EXPECT_EQ(log.err(), line + "Thread::stop(): called from the thread itself\n" + line +
                             "Thread::start(): called from the thread itself\n" + line +
                             "not a std::exception\n");
}

TEST(Thread, blocksSigpipeAloneAndOnlyForItself)
{
    const auto blocked = [] {
        sigset_t signals{};
        pthread_sigmask(SIG_SETMASK, nullptr, &signals);
        return signals;
    };
    std::promise<sigset_t> inside;
    Worker worker([&] { inside.set_value(blocked()); });
    worker.start();
    sigset_t expected = blocked();
    EXPECT_EQ(sigismember(&expected, SIGPIPE), 0);
    sigaddset(&expected, SIGPIPE);
    const sigset_t found = inside.get_future().get();
    EXPECT_EQ(std::memcmp(&found, &expected, sizeof found), 0);
}
