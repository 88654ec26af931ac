// SPDX-License-Identifier: MIT
#include "velk/BufferMismatchException.h"
#include "velk/CANTransportThread.h"

#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <utility>

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

struct SignalEachMillisecond {
    SignalEachMillisecond()
    {
        struct sigaction ignored {};
        ignored.sa_handler = [](int) {};
        sigaction(SIGALRM, &ignored, nullptr);
        set(1000);
    }
    ~SignalEachMillisecond() { set(0); }
    static void set(suseconds_t us)
    {
        const itimerval each{{0, us}, {0, us}};
        setitimer(ITIMER_REAL, &each, nullptr);
    }
};

} // namespace

TEST(Loop, framesAndSignalsLeaveTheTimeThatIsLeft)
{
    LogCapture log;
    Endpoint endpoint(1);
    endpoint.frame({0x10, 100});
    Access::setTimeLeft(endpoint, 500000);
    endpoint.write(recordOf({1, 8, {0x20}}));
    Access::pass(endpoint);
    EXPECT_LE(Access::snapshot(endpoint).timerUs, 500000);
    const SignalEachMillisecond signals;
    Access::pass(endpoint);
    EXPECT_LT(Access::snapshot(endpoint).timerUs, 500000);
    EXPECT_NE(log.out().find("pselect interrupted"), std::string::npos);
    EXPECT_EQ(log.err(), "");
    EXPECT_EQ(endpoint.sent(), Lines{fc(1)}) << "no expiry";
}

TEST(Loop, aSignalShortensNoSleepAndIsNoErrorOfARead)
{
    Endpoint pipe;
    fcntl(pipe.outputEnd, F_SETFL, 0); // waits
    TraceMessageBuffer buffer(pipe.outputEnd, nullptr);
    const SignalEachMillisecond signals;
    EXPECT_EQ(buffer.read(), 0);
    const auto before = std::chrono::steady_clock::now();
    millisleep(20);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(20));
}

TEST(Loop, aClosedWriteEndIsToldOnceAndTheTimerAndStopGoOn)
{
    LogCapture log;
    Endpoint endpoint(2);
    endpoint.frame({0x10, 100});
    Access::setTimeLeft(endpoint, 1000);
    log.out();
    close(std::exchange(Access::input(endpoint)[1], -1));
    endpoint.start();
    log.waitFor("threadCode() state = RCTS_IDLE");
    endpoint.stop();
    EXPECT_EQ(endpoint.sent(), (Lines{fc(1), fc(2)}));
    EXPECT_EQ(log.err(), "[ERROR] CANTransportThread::handleData() the input has ended: its write "
                         "end was closed\n");
    const std::string text = log.out();
    const std::string pass = "threadCode() state = RCTS_RECEIVING";
    EXPECT_EQ(text.find(pass, text.find(pass) + 1), text.rfind(pass)) << "two passes, no spinning";
    EXPECT_EQ(text.find("timeout set to 5"), std::string::npos) << "a timer that runs goes on";
}

TEST(Loop, whatAnExceptionLeavesInTheBufferIsTakenAtTheStart)
{
    LogCapture log;
    Endpoint endpoint(2);
    endpoint.write(bytesOf(CANTraceMessage(1, pattern(9).data(), 9)));
    endpoint.write(recordOf({1, 8, {0x01, 5}}));
    EXPECT_THROW(endpoint.takeInput(), BufferMismatchException);
    log.out();
    endpoint.start();
    log.waitFor("CAN write to canProxyFD");
    endpoint.stop();
    EXPECT_EQ(endpoint.sent(), Lines{fc(3)});
    const std::string start = "[INFO] CANTransportThread::threadCode() Start CANTransportThread\n"
                              "[DEBUG] CANTransportThread::setSelectTimeout() select timeout set "
                              "to 5.000000\n";
    EXPECT_EQ(log.out().substr(0, start.size()), start);
}
