// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"
#include "velk/CancellableScope.h"
#include "velk/DescriptorSet.h"

#include "LogLine.h"
#include "Timing.h"

#include <cerrno>

void CANTransportThread::threadCode()
{
    startLoop();
    if (!traceBuffer->empty()) { // bytes that an earlier run has read do not wake select()
        handleData();
    }
    DescriptorSet input(inputPipe[0]);
    for (;;) {
        pass(input);
        checkInvariants();
    }
}

void CANTransportThread::startLoop()
{
    infoLine("threadCode") << "Start CANTransportThread";
    if (idle()) { // otherwise the timer continues that a stop or an exception interrupted
        setTimer(Timing::atStart);
    }
}

/// One pass of the loop: a wait, then the input or the expiry that ended it.
void CANTransportThread::pass(DescriptorSet& input)
{
    timeval* const timeout = startPass();
    if (traceBuffer->atEnd()) {
        input.empty(); // the end of the input would wake every wait; only the timer still counts
    } else {
        input.fill();
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
        handleExpiry();
    }
}

/// @return how long the pass may wait; null for any time: the endpoint is at rest.
timeval* CANTransportThread::startPass()
{
    if (debugLevel != 0) {
        debugLine("threadCode") << "state = " << printState(state);
    }
    if (!idle()) {
        return &selectTimeoutLeft;
    }
    stopTimer();
    endReceptionWithoutTimer();
    return nullptr;
}

void CANTransportThread::handleExpiry()
{
    if (debugLevel > 1) {
        debugLine("threadCode") << "pselect timeout";
    }
    selectTimeoutLeft = selectTimeout;
    handleTimeout();
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
