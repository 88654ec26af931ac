// SPDX-License-Identifier: MIT
#include "velk/CANTransportFrame.h"
#include "velk/CANTransportThread.h"
#include "velk/CancellableScope.h"

#include "LogLine.h"
#include "Timing.h"

/// Sends an answer to the peer and updates the reception, even if the frame could not be written.
void CANTransportThread::sendFlowControl(int code)
{
    using namespace CANTransportFrame;
    TPCANMsg frame{sendCANid, dataBytes, {}};
    frame.data[0] = firstByte(CTP_FLOW_CONTROL, static_cast<unsigned int>(code));
    if (debugLevel != 0) {
        debugLine("sendFlowControl") << frame;
    }
    {
        const CancellableScope cancellable;
        sendCANMessage(frame);
    }
    switch (static_cast<flowcontrol_t>(code)) {
    case CTP_FC_NOT_READY_TO_RECEIVE:
        break;
    case CTP_FC_READY_TO_RECEIVE:
        state |= RCTS_RECEIVING;
        expectedFrame = EXPECT_CONSECUTIVE;
        setTimer(Timing::receptionTimeout);
        break;
    case CTP_FC_NOT_ACKNOWLEDGE:
    case CTP_FC_ACKNOWLEDGE:
        state &= ~RCTS_RECEIVING;
        expectedFrame = EXPECT_FIRST_OR_SINGLE;
        break;
    }
}
