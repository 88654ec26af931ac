#include "velk/CANTransportThread.h"

#include "velk/CancellableScope.h"

#include "reception/FrameFormat.h"
#include "thread/LogLine.h"

#include <cerrno>

#include <unistd.h>

/// The one way out to the bus, to be called in a CancellableScope. A frame that could not be written is
/// lost; only a timeout, here or at the peer, makes up for it.
void CANTransportThread::sendCANMessage(TPCANMsg& frame)
{
    constexpr std::uint32_t standardIdMask = 0x7FF;
    const std::uint32_t canID = frame.canID & standardIdMask;
    if (debugLevel > 0) {
        LogLine::debug("sendCANMessage")
            << "CAN write to canProxyFD: " << CANExtTraceMessage(canID, frame.data, frame.len);
    }
    unsigned char record[CANExtTraceMessage::classicRecordSize];
    CANExtTraceMessage::writeClassicRecord(record, canID, frame.data);
    if (::write(canProxyFD, record, sizeof record) == -1) {
        LogLine::systemError("sendCANMessage", "failed to send data to the CAN proxy: ", errno);
    }
}

void CANTransportThread::sendFlowControl(int code)
{
    TPCANMsg frame{sendCANid, FrameFormat::dataBytes, {}};
    frame.data[0] = FrameFormat::firstByte(CTP_FLOW_CONTROL, static_cast<unsigned int>(code));
    if (debugLevel != 0) {
        LogLine::debug("sendFlowControl") << frame;
    }
    {
        const CancellableScope cancellable;
        sendCANMessage(frame);
    }
    switch (code) {
    case CTP_FC_READY_TO_RECEIVE:
        state |= RCTS_RECEIVING;
        expectedFrame = EXPECT_CONSECUTIVE;
        setSelectTimeout(1, 0);
        break;
    case CTP_FC_NOT_ACKNOWLEDGE:
    case CTP_FC_ACKNOWLEDGE:
        state &= ~RCTS_RECEIVING;
        expectedFrame = EXPECT_FIRST_OR_SINGLE;
        break;
    default: // CTP_FC_NOT_READY_TO_RECEIVE changes nothing
        break;
    }
}
