#include "velk/CANTransportThread.h"

#include "LogLine.h"
#include "Timing.h"

/// Counts one failed attempt of the front message, which is sent again or given up.
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

/// No timer runs afterwards that could end a running reception, so it ends here.
void CANTransportThread::disconnect()
{
    connected = false;
    state = RCTS_IDLE;
    receiveBuffer.clear();
    expectedFrame = EXPECT_FIRST_OR_SINGLE;
    reportOutage(CTT_DISCONNECTED);
}

/// One report stands for a whole outage, however many messages are given up in it.
void CANTransportThread::reportOutage(statuschange_t status)
{
    if (delegate && reportFailure) {
        reportFailure = false;
        report("handleSendError", status, 0);
    }
}
