#include "velk/CANTransportThread.h"

#include "velk/CancellableScope.h"
#include "velk/LogUtil.h"
#include "velk/VelkException.h"

#include "thread/DescriptorSet.h"
#include "thread/LogLine.h"

#include <cerrno>

void CANTransportThread::threadCode()
{
    LogLine::info("threadCode") << "Start CANTransportThread";
    throwUnlessOpen();
    DescriptorSet input(inputPipe[0]);
    if (idle()) { // what a stop or an exception has broken off keeps the timer that it had
        setSelectTimeout(5, 0);
    }
    if (!traceBuffer->empty()) { // what it has left there would not wake select()
        handleData();
    }
    for (;;) {
        wakeUp(input);
        checkInvariants();
    }
}

/// One wait and what it brings.
void CANTransportThread::wakeUp(DescriptorSet& input)
{
    if (debugLevel != 0) {
        LogLine::debug("threadCode") << "state = " << printState(state);
    }
    input.fill();
    const int ready = waitForInput(input, idle() ? rest() : &selectTimeoutLeft);
    if (ready > 0) {
        if (debugLevel > 2) {
            LogLine::debug("threadCode") << "pselect data available";
        }
        if (input.contains()) {
            handleData();
        }
    } else if (ready == 0) {
        if (debugLevel > 1) {
            LogLine::debug("threadCode") << "pselect timeout";
        }
        selectTimeoutLeft = selectTimeout;
        handleTimeout();
    }
}

bool CANTransportThread::idle()
{
    const bool queueEmpty = noMessage(); // read first: no lock is held for the state
    return state == RCTS_IDLE && queueEmpty;
}

/// Stops the timer. From here no expiry could end a reception any more, so a phase that has lost
/// its RCTS_RECEIVING ends here; otherwise first and single frames would be refused for ever.
/// @return the timeout of an untimed wait.
timeval* CANTransportThread::rest()
{
    if (debugLevel > 2) {
        LogLine::debug("threadCode") << "timeout set to 0";
    }
    setSelectTimeout(0, 0);
    if (expectedFrame == EXPECT_CONSECUTIVE) {
        expectedFrame = EXPECT_FIRST_OR_SINGLE;
        receiveBuffer.clear();
        if (debugLevel != 0) {
            LogLine::debug("threadCode") << "reception without a timer ended";
        }
    }
    return nullptr;
}

/// Not pselect(): the timer rests on the time left that select() writes back.
int CANTransportThread::waitForInput(DescriptorSet& input, timeval* timeout)
{
    int ready = 0;
    int error = 0;
    {
        const CancellableScope cancellable;
        ready = ::select(input.count(), input.forSelect(), nullptr, nullptr, timeout);
        error = errno;
    }
    if (ready == -1) {
        if (error != EINTR) {
            LogLine::systemError("threadCode", "pselect() reported an error.", error);
        }
        if (debugLevel != 0) {
            LogLine::debug("threadCode") << "pselect interrupted";
        }
    }
    return ready;
}

void CANTransportThread::setSelectTimeout(int seconds, int milliseconds)
{
    selectTimeout.tv_sec = seconds;
    selectTimeout.tv_usec = milliseconds * 1000L;
    selectTimeoutLeft = selectTimeout;
    if (debugLevel > 1) {
        LogLine::debug("setSelectTimeout") << "select timeout set to " << selectTimeout;
    }
}

void CANTransportThread::throwUnlessOpen() const
{
    if (!traceBuffer) {
        VelkException error;
        error << "CANTransportThread: open() has to succeed before start()";
        throw error;
    }
}
