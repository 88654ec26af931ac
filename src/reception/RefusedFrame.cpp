// SPDX-License-Identifier: MIT
#include "velk/CANTransportFrame.h"
#include "velk/CANTransportThread.h"

#include "LogLine.h"
#include "ReceptionEnd.h"

namespace {

const char* wordFor(const CANTransportThread::TPCANMsg& frame)
{
    switch (CANTransportFrame::kindOf(frame.data)) {
    case CANTransportThread::CTP_SINGLE_FRAME:
        return "single frame";
    case CANTransportThread::CTP_FIRST_FRAME:
        return "first frame";
    case CANTransportThread::CTP_CONSECUTIVE_FRAME:
        return "consecutive frame";
    case CANTransportThread::CTP_FLOW_CONTROL:
        return "flow control";
    }
    return "unknown frame";
}

} // namespace

void CANTransportThread::showError(TPCANMsg& frame)
{
    const char* expected =
        expectedFrame == EXPECT_CONSECUTIVE ? "consecutive frame" : "first or single frame";
    errorLine("showError") << "received " << wordFor(frame) << " but expected " << expected;
    errorLine("showError") << "message: " << frame;
}

/// Answers a frame that is invalid or that the phase does not allow. A running reception loses its bytes and
/// only counts to its end.
void CANTransportThread::showErrorAndClearBuffer(TPCANMsg& frame)
{
    showError(frame);
    errorLine("showErrorAndClearBuffer") << "send CTP_FC_NOT_READY_TO_RECEIVE";
    sendFlowControl(CTP_FC_NOT_READY_TO_RECEIVE);
    errorLine("showErrorAndClearBuffer") << "receiveBuffer.clear()";
    receiveBuffer.clear();
    receptionSpoiled = expectedFrame == EXPECT_CONSECUTIVE;
}

/// Answers a message that cannot be completed, and ends its reception.
void CANTransportThread::refuseMessage()
{
    const ReceptionEnd end{*this};
    sendFlowControl(CTP_FC_NOT_ACKNOWLEDGE);
}
