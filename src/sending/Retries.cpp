#include "velk/CANTransportThread.h"

#include "thread/LogLine.h"

/// The one timer has run out; it serves both directions.
void CANTransportThread::handleTimeout()
{
    if (debugLevel != 0) {
        LogLine::debug("handleTimeout") << "state = " << printState(state);
    }
    if ((state & RCTS_RECEIVING) != 0) {
        refuseMessage();
        report("handleTimeout", CTT_RECEIVE_TIMEOUT, 0);
    }
    if ((state & RCTS_WAIT_FOR_FC) != 0) {
        handleSendError(true);
    } else {
        processSendQueue();
    }
}

/// Counts one failed attempt of the front message, which is sent again or given up.
void CANTransportThread::handleSendError(bool resend)
{
    if (debugLevel != 0) {
        LogLine::debug("handleSendError") << "state = " << printState(state);
    }
    if (reportFailure) {
        LogLine::info("handleSendError") << "send retry = " << sendRetry;
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
    setSelectTimeout(1, 0);
}

/// No timer is left behind that could end a running reception, so it ends here.
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
