// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"

#include "LogLine.h"
#include "Timing.h"

/// Counts a failed attempt of the front message, and sends it again or gives it up.
void CANTransportThread::handleSendError(bool resend)
{
    if (debugLevel != 0) {
        debugLine("handleSendError") << "state = " << printState(state);
    }
    if (reportFailure) {
        infoLine("handleSendError") << "send retry = " << sendRetry;
    }
    state &= ~(RCTS_SENDING | RCTS_WAIT_FOR_FC);
    ++sendRetry;
    if (sendRetry > SEND_RETRY_LIMIT) {
        clear(true);
        sendRetry = 0;
        if (resend && connected) {
            disconnect();
            return;
        }
        reportOutage(CTT_SEND_TIMEOUT);
    } else if (resend) {
        processSendQueue();
    }
    setTimer(Timing::answerTimeout);
}

/// Ends a reception too: afterwards no timer could end it.
void CANTransportThread::disconnect()
{
    connected = false;
    state = RCTS_IDLE;
    receiveBuffer.clear();
    expectedFrame = EXPECT_FIRST_OR_SINGLE;
    reportOutage(CTT_DISCONNECTED);
}

/// Reports each outage once, however many messages are given up in it.
void CANTransportThread::reportOutage(statuschange_t status)
{
    if (delegate && reportFailure) {
        reportFailure = false;
        report("handleSendError", status, 0);
    }
}
