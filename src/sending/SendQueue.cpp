// SPDX-License-Identifier: MIT
#include "velk/CANTransportFrame.h"
#include "velk/CANTransportThread.h"
#include "velk/CancellableScope.h"
#include "velk/DescriptorSet.h"

#include "LogLine.h"
#include "Timing.h"

const CANTransportThread::Frames::iterator CANTransportThread::MSGPART_INVALID{};

/// If a stop or an exception interrupts an attempt, it starts again with the first frame, because it is
/// unknown which frames have left. It first waits the second after which the peer's reception has ended.
struct CANTransportThread::Attempt {
    CANTransportThread& endpoint;
    bool complete = false;

    ~Attempt()
    {
        if (!complete) {
            endpoint.state &= ~RCTS_SENDING;
            endpoint.setTimer(Timing::answerTimeout);
        }
    }
};

/// Sends what may go out before the peer has to answer: a single frame, a first frame, or all
/// consecutive frames of a message.
void CANTransportThread::processSendQueue()
{
    if ((state & RCTS_WAIT_FOR_FC) != 0) {
        return;
    }
    const MutexLock lock(queueMutex);
    if (sendQueue.empty()) {
        return;
    }
    Frames& frames = *sendQueue.front();
    if ((state & RCTS_SENDING) == 0) {
        state |= RCTS_SENDING;
        msgPart = frames.begin();
    } else if (msgPart == frames.end()) {
        failAtEndOfVector("reached end of vector - be confused :-/");
        return;
    } else if (++msgPart == frames.end()) {
        failAtEndOfVector("reached end of vector (2) - be confused :-/");
        return;
    }
    Attempt attempt{*this};
    {
        const CancellableScope cancellable;
        sendCANMessage(*msgPart);
        if (CANTransportFrame::kindOf(msgPart->data) == CTP_CONSECUTIVE_FRAME) {
            for (++msgPart; msgPart != frames.end(); ++msgPart) {
                sendCANMessage(*msgPart);
            }
        }
    }
    setTimer(Timing::answerTimeout);
    state |= RCTS_WAIT_FOR_FC;
    attempt.complete = true;
}

/// The message stays at the front and starts again at the next expiry.
void CANTransportThread::failAtEndOfVector(const char* text)
{
    errorLine("processSendQueue") << text;
    state = RCTS_IDLE;
}

void CANTransportThread::clear(bool includeCurrent)
{
    {
        const MutexLock lock(queueMutex);
        if (sendQueue.empty()) {
            // Nothing changes, not even the state.
        } else if (!includeCurrent && (state & RCTS_SENDING) != 0) {
            sendQueue.erase(sendQueue.begin() + 1, sendQueue.end());
        } else {
            sendQueue.clear();
            state &= ~(RCTS_SENDING | RCTS_WAIT_FOR_FC);
        }
    }
    if (debugLevel != 0) {
        debugLine("clear") << "state = " << printState(state);
    }
}

bool CANTransportThread::noMessage()
{
    const MutexLock lock(queueMutex);
    return sendQueue.empty();
}

bool CANTransportThread::sendQueueEmpty()
{
    if (inputPipe[0] == -1) {
        return false;
    }
    if (!noMessage()) {
        return false;
    }
    DescriptorSet input(inputPipe[0]);
    input.fill();
    return input.poll() == 0;
}
