#include "velk/Thread.h"

#include "velk/CancellableScope.h"
#include "velk/Millisleep.h"
#include "velk/VelkException.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <future>

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
    worker.stop();
    EXPECT_TRUE(scopeReached);
    EXPECT_FALSE(worker.running());
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
