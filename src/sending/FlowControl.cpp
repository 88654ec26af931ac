#include "velk/CANTransportThread.h"

#include "velk/Millisleep.h"

#include "reception/FrameFormat.h"
#include "thread/LogLine.h"

#include <mutex>

/// The peer's answer decides what becomes of the message in progress.
void CANTransportThread::checkFlowControl(TPCANMsg& frame)
{
    if (debugLevel >= 2) {
        LogLine::debug("checkFlowControl") << frame;
    }
    if ((state & RCTS_WAIT_FOR_FC) == 0) {
        LogLine::error("checkFlowControl")
            << "received a flow control but has no sending state." << frame;
        return;
    }
    state &= ~RCTS_WAIT_FOR_FC;
    const int code = FrameFormat::lowNibbleOf(frame);
    switch (code) {
    case CTP_FC_READY_TO_RECEIVE:
        handleReady();
        break;
    case CTP_FC_NOT_READY_TO_RECEIVE:
    case CTP_FC_NOT_ACKNOWLEDGE:
        handleRefusal(code);
        break;
    case CTP_FC_ACKNOWLEDGE:
        handleAcknowledge();
        break;
    default: // not a code of the format: the wait has ended, the timer decides
        break;
    }
}

/// The rest of the message goes out.
void CANTransportThread::handleReady()
{
    bool gone = false;
    bool nothingLeft = false;
    {
        const std::lock_guard<Mutex> lock(queueMutex);
        gone = sendQueue.empty();
        nothingLeft = !gone && (msgPart == sendQueue.front()->end() || msgPart == MSGPART_INVALID);
        if (nothingLeft) {
            // Under the lock: behind it a clear() could leave the flag set with no message.
            state |= RCTS_WAIT_FOR_FC;
        }
    }
    if (gone) {
        logMessageHasGone();
    } else if (nothingLeft) {
        LogLine::error("checkFlowControl")
            << "got READY_TO_RECEIVE but have no data left that could be send.";
    } else {
        sendRetry = 0;
        processSendQueue();
    }
}

/// The attempt has failed. The pause gives the peer time to get over it.
void CANTransportThread::handleRefusal(int code)
{
    constexpr int pauseMs = 10;
    LogLine::error("checkFlowControl")
        << "CTP_FC_NOT_ACKNOWLEDGE or CTP_FC_NOT_READY_TO_RECEIVE received [" << code << "]";
    millisleep(pauseMs);
    handleSendError(true);
}

/// The message is finished, also if some of its frames have not been sent.
void CANTransportThread::handleAcknowledge()
{
    if (debugLevel >= 2) {
        LogLine::debug("checkFlowControl") << "CTP_FC_ACKNOWLEDGE";
    }
    std::unique_ptr<Frames> message;
    {
        const std::lock_guard<Mutex> lock(queueMutex);
        if (!sendQueue.empty()) {
            message = std::move(sendQueue.front());
            sendQueue.pop_front();
        }
    }
    if (!message) {
        logMessageHasGone();
        return;
    }
    const std::uint8_t secondByte = message->front().data[1];
    message.reset();
    report("checkFlowControl", CTT_ACKNOWLEDGED, secondByte);
    state &= ~RCTS_SENDING;
    expectedFrame = EXPECT_FIRST_OR_SINGLE;
    sendRetry = 0;
    msgPart = MSGPART_INVALID;
    setSelectTimeout(0, 10); // the pause before the next message; its line tells of the end
}

/// A clear() on another thread came behind the test of the wait flag.
void CANTransportThread::logMessageHasGone()
{
    if (debugLevel != 0) {
        LogLine::debug("checkFlowControl") << "the message has been cleared meanwhile";
    }
}
