// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"

#include "LogLine.h"

/// The timer has expired; it serves both directions.
void CANTransportThread::handleTimeout()
{
    if (debugLevel != 0) {
        debugLine("handleTimeout") << "state = " << printState(state);
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
