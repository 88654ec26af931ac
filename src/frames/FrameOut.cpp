// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"

#include "LogLine.h"

#include <cerrno>

#include <unistd.h>

/// The one way out to the bus; callers are in a CancellableScope. A frame that could not be written is lost.
/// Only a timeout, here or at the peer, recovers from that.
void CANTransportThread::sendCANMessage(TPCANMsg& frame)
{
    constexpr std::uint32_t standardIdMask = 0x7FF;
    const std::uint32_t canID = frame.canID & standardIdMask;
    if (debugLevel > 0) {
        debugLine("sendCANMessage")
            << "CAN write to canProxyFD: " << CANExtTraceMessage(canID, frame.data, frame.len);
    }
    if (outlet != nullptr) {
        TPCANMsg out = frame;
        out.canID = canID;
        outlet->onFrame(out);
        return;
    }
    unsigned char record[CANExtTraceMessage::classicRecordSize];
    CANExtTraceMessage::writeClassicRecord(record, canID, frame.data);
    if (::write(canProxyFD, record, sizeof record) == -1) {
        logSystemError("sendCANMessage", "failed to send data to the CAN proxy: ", errno);
    }
}
