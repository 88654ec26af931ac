// SPDX-License-Identifier: MIT
#include "velk/CANTransportFrame.h"
#include "velk/CANTransportThread.h"
#include "velk/Millisleep.h"

#include "LogLine.h"
#include "Timing.h"

#include <utility>

/// The peer's answer decides how the message in progress continues.
void CANTransportThread::checkFlowControl(TPCANMsg& frame)
{
    if (debugLevel >= 2) {
        debugLine("checkFlowControl") << frame;
    }
    if ((state & RCTS_WAIT_FOR_FC) == 0) {
        errorLine("checkFlowControl")
            << "received a flow control but has no sending state." << frame;
        return;
    }
    state &= ~RCTS_WAIT_FOR_FC;
    const flowcontrol_t code = CANTransportFrame::codeOf(frame.data);
    switch (code) {
    case CTP_FC_READY_TO_RECEIVE:
        handleReady();
        break;
    case CTP_FC_NOT_READY_TO_RECEIVE:
    case CTP_FC_NOT_ACKNOWLEDGE:
        handleRefusedMessage(code);
        break;
    case CTP_FC_ACKNOWLEDGE:
        handleAcknowledge();
        break;
    }
    // An unknown code only ends the wait; the timer decides what follows.
}

/// Sends the rest of the message.
void CANTransportThread::handleReady()
{
    bool gone = false;
    bool nothingLeft = false;
    {
        const MutexLock lock(queueMutex);
        gone = sendQueue.empty();
        // While a message is in progress, msgPart points to one of its frames or to their end.
        nothingLeft = !gone && msgPart == sendQueue.front()->end();
        if (nothingLeft) {
            // Under the lock: otherwise a clear() could leave the flag set without a message.
            state |= RCTS_WAIT_FOR_FC;
        }
    }
    if (gone) {
        logMessageCleared();
    } else if (nothingLeft) {
        errorLine("checkFlowControl")
            << "got READY_TO_RECEIVE but have no data left that could be send.";
    } else {
        sendRetry = 0;
        processSendQueue();
    }
}

/// Counts a failed attempt, after a pause that gives the peer time to recover.
void CANTransportThread::handleRefusedMessage(flowcontrol_t code)
{
    errorLine("checkFlowControl")
        << "CTP_FC_NOT_ACKNOWLEDGE or CTP_FC_NOT_READY_TO_RECEIVE received [" << code << "]";
    millisleep(static_cast<int>(Timing::pauseAfterRefusal.count()));
    handleSendError(true);
}

/// Finishes the message, even if some of its frames have not been sent.
void CANTransportThread::handleAcknowledge()
{
    if (debugLevel >= 2) {
        debugLine("checkFlowControl") << "CTP_FC_ACKNOWLEDGE";
    }
    std::unique_ptr<Frames> message;
    {
        const MutexLock lock(queueMutex);
        if (!sendQueue.empty()) {
            message = std::move(sendQueue.front());
            sendQueue.pop_front();
        }
    }
    if (!message) {
        logMessageCleared();
        return;
    }
    const std::uint8_t secondByte = message->front().data[1];
    message.reset();
    report("checkFlowControl", CTT_ACKNOWLEDGED, secondByte);
    state &= ~RCTS_SENDING;
    expectedFrame = EXPECT_FIRST_OR_SINGLE;
    sendRetry = 0;
    msgPart = MSGPART_INVALID;
    setTimer(Timing::pauseAfterAcknowledgement); // last: its log line ends those of the message
}

/// Another thread called clear() after the wait flag was tested.
void CANTransportThread::logMessageCleared()
{
    if (debugLevel != 0) {
        debugLine("checkFlowControl") << "the message has been cleared meanwhile";
    }
}
