#include "velk/CANTransportThread.h"

#include "support/Endpoint.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <poll.h>
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

Bytes requestOf(const Bytes& message) { return bytesOf(CANTransportTraceMessage(message)); }

} // namespace

TEST(Loop, tellsItsStepsAndSendsAgainByTheTimer)
{
    LogCapture log;
    Endpoint endpoint(3);
    endpoint.start();
    log.waitFor("state = ");
    endpoint.write(requestOf({1}));
    for (int i = 0; i < 2; ++i) {
        waitReadable(endpoint.proxyPipe[0]);
        EXPECT_EQ(endpoint.sent(), Lines{"01 01 00 00 00 00 00 00"});
    }
    endpoint.stop();
    const std::string text = log.out();
    EXPECT_EQ(text.substr(0, text.find(debugTag + "handleData")),
              "[INFO] CANTransportThread::threadCode() Start CANTransportThread\n" + debugTag +
                  "setSelectTimeout() select timeout set to 5.000000\n" + debugTag +
                  "threadCode() state = RCTS_IDLE\n" + debugTag +
                  "threadCode() timeout set to 0\n" + debugTag +
                  "setSelectTimeout() select timeout set to 0.000000\n" + debugTag +
                  "threadCode() pselect data available\n");
    EXPECT_NE(text.find(debugTag + "threadCode() state = RCTS_SENDING RCTS_WAIT_FOR_FC \n" +
                        debugTag + "threadCode() pselect timeout\n" + debugTag +
                        "handleTimeout() state = "),
              std::string::npos);
}

TEST(Loop, aSignalOnlyInterruptsTheWait)
{
    signal(SIGUSR1, [](int) {});
    LogCapture log;
    Endpoint endpoint(1);
    endpoint.start();
    sigset_t blocked{};
    sigaddset(&blocked, SIGUSR1);
    sigset_t before{};
    pthread_sigmask(SIG_BLOCK, &blocked, &before); // so that the endpoint's thread gets it
    while (log.out().find("pselect interrupted") == std::string::npos) {
        kill(getpid(), SIGUSR1);
        millisleep(1);
    }
    endpoint.stop();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(log.err(), "");
}

TEST(Loop, anErrorInEachPassIsToldAndStopStillWorks)
{
    LogCapture log;
    Endpoint closed;
    close(Access::inputReadEnd(closed));
    closed.takeInput();
    closed.start();
    const std::string reason = "errno 9: Bad file descriptor\n";
    log.waitFor(reason + "[ERROR]");
    closed.stop();
    const std::string lines =
        "[ERROR] CANTransportThread::getNextTraceMessage() failed to read data: \n" + reason +
        "[ERROR] CANTransportThread::threadCode() pselect() reported an error.\n" + reason;
    EXPECT_EQ(log.err().substr(0, lines.size()), lines);
    EXPECT_EQ(log.out().find("pselect interrupted"), std::string::npos);
    CANTransportThread neverOpened;
    neverOpened.start();
    log.waitFor("open() has to succeed before start()");
    neverOpened.stop();
}

TEST(Loop, aProxyThatIsGoneCostsALineForEachFrame)
{
    LogCapture log;
    Endpoint endpoint;
    endpoint.breakProxy(false);
    endpoint.start(); // SIGPIPE is blocked in the thread alone
    endpoint.write(requestOf({1}));
    log.waitFor("Broken pipe\n");
    endpoint.stop();
    EXPECT_EQ(log.err(),
              "[ERROR] CANTransportThread::sendCANMessage() failed to send data to the CAN proxy: "
              "\nerrno 32: Broken pipe\n");
}

TEST(Loop, stopGetsThroughToAClientThatDoesNotReadAndStartGoesOn)
{
    LogCapture log;
    Endpoint endpoint(2);
    const Bytes message = pattern(20);
    fcntl(endpoint.outputEnd, F_SETPIPE_SZ, 4096);
    while (endpoint.outputWaiting() <= 4096 - 44) {
        endpoint.framesOf(message);
    }
    endpoint.framesOf(message, 0, 2);
    endpoint.sent();
    log.out();
    endpoint.write(recordOf(cut(message)[2]));
    endpoint.start();
    log.waitFor("checkConsecutiveFrame()");
    endpoint.stop();
    endpoint.delivered();
    endpoint.framesOf(message);
    EXPECT_EQ(endpoint.delivered(), std::vector<Bytes>{message});
    EXPECT_EQ(endpoint.sent(), (Lines{fc(1), fc(3)}));
}

TEST(Loop, stopGetsThroughToAProxyThatDoesNotTakeAndTheMessageStartsAfresh)
{
    LogCapture log;
    Endpoint endpoint(2);
    fcntl(endpoint.proxyPipe[1], F_SETPIPE_SZ, 4096); // less than the burst
    fcntl(endpoint.proxyPipe[1], F_SETFL, 0);
    const Bytes message = pattern(4095);
    endpoint.request(message);
    EXPECT_EQ(endpoint.sent(), Lines{hex(cut(message)[0])});
    endpoint.write(recordOf({1, 8, {0x31}}));
    Access::setTimeLeft(endpoint, 1000);
    endpoint.start();
    waitReadable(endpoint.proxyPipe[0]);
    endpoint.stop();
    EXPECT_FALSE(endpoint.sendQueueEmpty()); // no lock is held
    EXPECT_EQ(Access::snapshot(endpoint).timerUs, 1000000);
    endpoint.sent();
    Access::setTimeLeft(endpoint, 1000);
    endpoint.start();
    waitReadable(endpoint.proxyPipe[0]);
    endpoint.stop();
    EXPECT_EQ(endpoint.sent(), Lines{hex(cut(message)[0])});
    EXPECT_EQ(log.out().find("timeout set to 5"), std::string::npos); // the timer went on
}
