#include "velk/CANTransportThread.h"

#include "reception/FrameFormat.h"
#include "reception/ReceptionEnd.h"
#include "thread/LogLine.h"

namespace {

const char* wordFor(const CANTransportThread::TPCANMsg& frame)
{
    switch (FrameFormat::kindOf(frame)) {
    case CANTransportThread::CTP_SINGLE_FRAME:
        return "single frame";
    case CANTransportThread::CTP_FIRST_FRAME:
        return "first frame";
    case CANTransportThread::CTP_CONSECUTIVE_FRAME:
        return "consecutive frame";
    case CANTransportThread::CTP_FLOW_CONTROL:
        return "flow control";
    default:
        return "unknown frame";
    }
}

} // namespace

void CANTransportThread::showError(TPCANMsg& frame)
{
    const char* expected =
        expectedFrame == EXPECT_CONSECUTIVE ? "consecutive frame" : "first or single frame";
    LogLine::error("showError") << "received " << wordFor(frame) << " but expected " << expected;
    LogLine::error("showError") << "message: " << frame;
}

/// The answer to a frame that the phase does not allow. A running reception goes on, but has lost
/// its bytes: it can only count to its end.
void CANTransportThread::showErrorAndClearBuffer(TPCANMsg& frame)
{
    showError(frame);
    LogLine::error("showErrorAndClearBuffer") << "send CTP_FC_NOT_READY_TO_RECEIVE";
    sendFlowControl(CTP_FC_NOT_READY_TO_RECEIVE);
    LogLine::error("showErrorAndClearBuffer") << "receiveBuffer.clear()";
    receiveBuffer.clear();
    receptionSpoiled = expectedFrame == EXPECT_CONSECUTIVE;
}

/// The answer to a message that cannot become whole: its reception ends.
void CANTransportThread::refuseMessage()
{
    const ReceptionEnd end{*this};
    sendFlowControl(CTP_FC_NOT_ACKNOWLEDGE);
}
