#include "velk/CANTransportThread.h"

#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <csignal>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using Access = CANTransportThreadAccess;
const std::string debugTag = "[DEBUG] CANTransportThread::";

void waitReadable(int descriptor)
{
    pollfd wait{descriptor, POLLIN, 0};
    while (poll(&wait, 1, -1) != 1) {
    }
}

/// Fills a pipe until it takes nothing more, and leaves its end blocking.
void fill(int descriptor)
{
    const int flags = fcntl(descriptor, F_GETFL);
    fcntl(descriptor, F_SETFL, flags | O_NONBLOCK);
    const Bytes zeros(4096);
    while (write(descriptor, zeros.data(), zeros.size()) > 0 ||
           write(descriptor, zeros.data(), 1) > 0) {
    }
    fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK);
}

void drain(int descriptor)
{
    Bytes bytes(65536);
    pollfd wait{descriptor, POLLIN, 0};
    while (poll(&wait, 1, 0) == 1 && read(descriptor, bytes.data(), bytes.size()) > 0) {
    }
}

} // namespace

TEST(Loop, tellsItsStepsAtLevelThree)
{
    LogCapture log;
    Endpoint endpoint(3);
    endpoint.start();
    const std::string idle = debugTag + "threadCode() state = RCTS_IDLE\n" + debugTag +
                             "threadCode() timeout set to 0\n" + debugTag +
                             "setSelectTimeout() select timeout set to 0.000000\n";
    log.waitFor(idle);
    endpoint.write(bytesOf(CANTransportTraceMessage({1})));
    log.waitFor("state = RCTS_SENDING RCTS_WAIT_FOR_FC ");
    endpoint.stop();
    const std::string text = log.out();
    EXPECT_EQ(text.substr(0, text.find(debugTag + "handleData")),
              "[INFO] CANTransportThread::threadCode() Start CANTransportThread\n" + debugTag +
                  "setSelectTimeout() select timeout set to 5.000000\n" + idle + debugTag +
                  "threadCode() pselect data available\n");
}

TEST(Loop, anUnansweredMessageIsSentAgainByTheTimer)
{
    LogCapture log;
    Endpoint endpoint(2);
    endpoint.start();
    endpoint.write(bytesOf(CANTransportTraceMessage({1})));
    log.waitFor("send retry = 0");
    endpoint.stop();
    EXPECT_EQ(endpoint.sent(), Lines(2, "01 01 00 00 00 00 00 00"));
    EXPECT_NE(log.out().find(debugTag + "threadCode() pselect timeout\n" + debugTag +
                             "handleTimeout() state = "),
              std::string::npos);
}

TEST(Loop, aSignalOnlyInterruptsTheWait)
{
    signal(SIGUSR1, [](int) {});
    LogCapture log;
    Endpoint endpoint(1);
    endpoint.start();
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr); // so that the endpoint's thread gets it
    log.waitFor("state = RCTS_IDLE");
    while (log.out().find("pselect interrupted") == std::string::npos) {
        kill(getpid(), SIGUSR1);
        millisleep(1);
    }
    endpoint.stop();
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    signal(SIGUSR1, SIG_DFL);
    EXPECT_EQ(log.err(), "");
}

TEST(Loop, aDescriptorClosedUnderTheThreadIsToldAndStopStillWorks)
{
    LogCapture log;
    Endpoint endpoint;
    close(std::exchange(Access::inputReadEnd(endpoint), dup2(endpoint.outputEnd, 500)));
    close(500);
    endpoint.start();
    log.waitFor("[ERROR] CANTransportThread::threadCode() pselect() reported an error.\n"
                "errno 9: Bad file descriptor\n");
    endpoint.stop();
    EXPECT_EQ(log.out().find("pselect interrupted"), std::string::npos);
}

TEST(Loop, oneOverlongFrameDoesNotEndTheEndpointOrWhatStandsBehindIt)
{
    LogCapture log;
    Endpoint endpoint;
    const unsigned char data[12] = {};
    Bytes input = bytesOf(CANTraceMessage(1, data, 12));
    CANTransportTraceMessage({1}).createByteArray(input, true, true);
    endpoint.write(input);
    endpoint.start();
    waitReadable(endpoint.proxyPipe[0]);
    endpoint.stop();
    EXPECT_EQ(log.err(),
              "[ERROR] Thread::threadCode() left by an exception: CANTraceMessageBase too long\n");
    EXPECT_EQ(endpoint.sent(), Lines{"01 01 00 00 00 00 00 00"});
}

TEST(Loop, startWithoutOpenIsToldAndCanBeStopped)
{
    LogCapture log;
    CANTransportThread endpoint;
    endpoint.start();
    log.waitFor("open() has to succeed before start()");
    endpoint.stop();
}

TEST(Loop, aProxyThatTakesNothingCostsALineForEachFrameAndOneReport)
{
    enum class Fault { gone, closed, full };
    const std::pair<Fault, const char*> rows[] = {
        {Fault::gone, "errno 32: Broken pipe\n"},
        {Fault::closed, "errno 9: Bad file descriptor\n"},
        {Fault::full, "errno 11: Resource temporarily unavailable\n"}};
    for (const auto& [fault, reason] : rows) {
        LogCapture log;
        Endpoint endpoint;
        if (fault == Fault::closed) {
            endpoint.setConnection(-1);
        } else {
            endpoint.breakProxy(fault == Fault::full);
        }
        endpoint.start(); // SIGPIPE is blocked in the thread alone
        endpoint.write(bytesOf(CANTransportTraceMessage({1})));
        log.waitFor(reason);
        endpoint.stop();
        std::string lines =
            "[ERROR] CANTransportThread::sendCANMessage() failed to send data to the CAN proxy: \n";
        EXPECT_EQ(log.err(), lines += reason);
        if (fault != Fault::gone) { // the rest by hand
            for (int i = 0; i < 5; ++i) {
                endpoint.expire();
            }
            EXPECT_EQ(log.err(), lines + lines + lines + lines);
            EXPECT_EQ(endpoint.statuses(), Lines{"CTT_SEND_TIMEOUT 0"});
        }
        endpoint.mendProxy();
        endpoint.clear(true);
        endpoint.request({2});
        EXPECT_EQ(endpoint.sent(), Lines{"01 02 00 00 00 00 00 00"});
    }
}

TEST(Loop, stopGetsThroughToAClientThatDoesNotReadAndStartGoesOn)
{
    LogCapture log;
    Endpoint endpoint(2);
    Bytes attempt;
    for (const auto& frame : cut(pattern(20))) {
        CANExtTraceMessage(frame.canID, frame.data, frame.len).createByteArray(attempt, true, true);
    }
    fill(Access::outputWriteEnd(endpoint));
    endpoint.start();
    endpoint.write(attempt);
    endpoint.write(bytesOf(CANTransportTraceMessage({7}))); // waits behind the frames
    log.waitFor("checkConsecutiveFrame()  0x00000456 8  0x21");
    endpoint.stop();
    EXPECT_EQ(endpoint.sent(), Lines{fc(1)});
    drain(endpoint.outputEnd);
    endpoint.start();
    endpoint.write(attempt);
    waitReadable(endpoint.outputEnd);
    endpoint.stop();
    EXPECT_EQ(endpoint.delivered(), std::vector<Bytes>{pattern(20)});
    EXPECT_EQ(endpoint.sent().front(), "01 07 00 00 00 00 00 00");
}

TEST(Loop, stopGetsThroughToAProxyThatDoesNotTakeAndTheMessageStartsAfresh)
{
    LogCapture log;
    Endpoint endpoint(1);
    fill(endpoint.proxyPipe[1]);
    endpoint.start();
    log.waitFor("state = RCTS_IDLE");
    endpoint.write(bytesOf(CANTransportTraceMessage(pattern(20))));
    log.waitFor("CAN write to canProxyFD");
    endpoint.stop();
    EXPECT_FALSE(endpoint.sendQueueEmpty()); // no lock is held
    drain(endpoint.proxyPipe[0]);
    endpoint.start();
    waitReadable(endpoint.proxyPipe[0]);
    endpoint.stop();
    EXPECT_EQ(endpoint.sent(), Lines{hex(cut(pattern(20))[0])});
}

TEST(Loop, descriptorsAbove1024Work)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < 2000) {
        GTEST_SKIP() << "the hard limit of descriptors is " << limit.rlim_max;
    }
    const rlimit previous = std::exchange(limit, {2000, limit.rlim_max});
    setrlimit(RLIMIT_NOFILE, &limit);
    std::vector<int> fillers;
    while (fillers.empty() || fillers.back() < 1100) {
        fillers.push_back(dup(0));
    }
    {
        LogCapture log;
        Endpoint endpoint;
        EXPECT_GT(endpoint.inputEnd, 1024);
        EXPECT_TRUE(endpoint.sendQueueEmpty());
        endpoint.start();
        endpoint.write(bytesOf(CANTransportTraceMessage({1})));
        waitReadable(endpoint.proxyPipe[0]);
        endpoint.stop();
        EXPECT_FALSE(endpoint.sendQueueEmpty());
    }
    for (const int filler : fillers) {
        close(filler);
    }
    setrlimit(RLIMIT_NOFILE, &previous);
}
