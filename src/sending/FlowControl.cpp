#include "velk/CANTransportThread.h"

#include "thread/LogLine.h"

void CANTransportThread::checkFlowControl(TPCANMsg& frame)
{
    if (debugLevel >= 2) {
        LogLine::debug("checkFlowControl") << frame;
    }
}
