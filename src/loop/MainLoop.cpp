#include "velk/CANTransportThread.h"
#include "velk/CancellableScope.h"
#include "velk/DescriptorSet.h"

#include "LogLine.h"
#include "Timing.h"

#include <cerrno>

void CANTransportThread::threadCode()
{
    infoLine("threadCode") << "Start CANTransportThread";
    DescriptorSet input(inputPipe[0]);
    if (idle()) { // otherwise the timer that a stop or an exception interrupted runs again
        setTimer(Timing::atStart);
    }
    if (!traceBuffer->empty()) { // what an earlier run left there would not wake select()
        handleData();
    }
    for (;;) {
        pass(input);
        checkInvariants();
    }
}

/// One pass of the loop: a wait and what it brings.
void CANTransportThread::pass(DescriptorSet& input)
{
    if (debugLevel != 0) {
        debugLine("threadCode") << "state = " << printState(state);
    }
    if (traceBuffer->atEnd()) {
        input.empty(); // its end would wake each wait; the timer goes on
    } else {
        input.fill();
    }
    timeval* timeout = &selectTimeoutLeft;
    if (idle()) {
        stopTimer();
        endReceptionWithoutTimer();
        timeout = nullptr;
    }
    const int ready = waitForInput(input, timeout);
    if (ready > 0) {
        if (debugLevel > 2) {
            debugLine("threadCode") << "pselect data available";
        }
        if (input.contains()) {
            handleData();
        }
    } else if (ready == 0) {
        if (debugLevel > 1) {
            debugLine("threadCode") << "pselect timeout";
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

void CANTransportThread::stopTimer()
{
    if (debugLevel > 2) {
        debugLine("threadCode") << "timeout set to 0";
    }
    setTimer(Timing::none);
}

/// At rest no expiry can end a reception that has lost its RCTS_RECEIVING; without this, first and single
/// frames would be refused forever.
void CANTransportThread::endReceptionWithoutTimer()
{
    if (expectedFrame == EXPECT_CONSECUTIVE) {
        expectedFrame = EXPECT_FIRST_OR_SINGLE;
        receiveBuffer.clear();
        if (debugLevel != 0) {
            debugLine("threadCode") << "reception without a timer ended";
        }
    }
}

/// With select(): the timer depends on the time left that it writes back, which pselect() does not.
int CANTransportThread::waitForInput(DescriptorSet& input, timeval* timeout)
{
    int ready = 0;
    int error = 0;
    {
        const CancellableScope cancellable;
        ready = input.select(timeout);
        error = errno;
    }
    if (ready == -1) {
        if (error != EINTR) {
            logSystemError("threadCode", "pselect() reported an error.", error);
        }
        if (debugLevel != 0) {
            debugLine("threadCode") << "pselect interrupted";
        }
    }
    return ready;
}
