#include "velk/CANTransportThread.h"

#include "thread/LogLine.h"

void CANTransportThread::handleTimeout()
{
    if (debugLevel != 0) {
        LogLine::debug("handleTimeout") << "state = " << printState(state);
    }
}

void CANTransportThread::handleSendError(bool /*resend*/) {}
