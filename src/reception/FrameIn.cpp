#include "velk/CANTransportThread.h"

#include "reception/FrameFormat.h"
#include "thread/LogLine.h"

/// The one way in: every frame from the bus, of any kind and any CAN id.
void CANTransportThread::handleCANData(TPCANMsg& frame)
{
    if (debugLevel > 1) {
        LogLine::debug("handleCANData") << "CAN data received from the CAN proxy: " << frame;
        if (debugLevel > 2) {
            LogLine::debug("handleCANData") << "connected: " << (connected ? 1 : 0);
        }
    }
    if (!connected) {
        if (debugLevel != 0) {
            LogLine::debug("handleCANData") << "other side is alive, connected";
        }
        connected = true;
        reportFailure = true;
        report("handleCANData", CTT_CONNECTED, 0);
    }
    if (frame.data[0] == 0x00) {
        showErrorAndClearBuffer(frame);
        return;
    }
    switch (FrameFormat::kindOf(frame)) {
    case CTP_FLOW_CONTROL:
        checkFlowControl(frame);
        break;
    case CTP_SINGLE_FRAME:
        checkSingleFrame(frame);
        break;
    case CTP_FIRST_FRAME:
        checkFirstFrame(frame);
        break;
    case CTP_CONSECUTIVE_FRAME:
        checkConsecutiveFrame(frame);
        break;
    default:
        showErrorAndClearBuffer(frame);
        break;
    }
}
