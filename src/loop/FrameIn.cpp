// SPDX-License-Identifier: MIT
#include "velk/CANTransportFrame.h"
#include "velk/CANTransportThread.h"

#include "LogLine.h"

/// The one way in: every frame from the bus, of any kind and any CAN id.
void CANTransportThread::handleCANData(TPCANMsg& frame)
{
    if (debugLevel > 1) {
        debugLine("handleCANData") << "CAN data received from the CAN proxy: " << frame;
        if (debugLevel > 2) {
            debugLine("handleCANData") << "connected: " << (connected ? 1 : 0);
        }
    }
    if (!connected) {
        if (debugLevel != 0) {
            debugLine("handleCANData") << "other side is alive, connected";
        }
        connected = true;
        reportFailure = true;
        report("handleCANData", CTT_CONNECTED, 0);
    }
    if (frame.data[0] == 0x00) {
        showErrorAndClearBuffer(frame);
        return;
    }
    switch (CANTransportFrame::kindOf(frame.data)) {
    case CTP_FLOW_CONTROL:
        checkFlowControl(frame);
        return;
    case CTP_SINGLE_FRAME:
        checkSingleFrame(frame);
        return;
    case CTP_FIRST_FRAME:
        checkFirstFrame(frame);
        return;
    case CTP_CONSECUTIVE_FRAME:
        checkConsecutiveFrame(frame);
        return;
    }
    showErrorAndClearBuffer(frame); // not a kind of the format
}
