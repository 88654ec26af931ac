// SPDX-License-Identifier: MIT
#include "velk/CANTransportFrame.h"
#include "velk/CANTransportThread.h"

#include "LogLine.h"
#include "ReceptionEnd.h"
#include "Timing.h"

#include <algorithm>

using namespace CANTransportFrame;

namespace {

unsigned short shortIdOf(const CANTransportThread::TPCANMsg& frame)
{
    return static_cast<unsigned short>(frame.canID);
}

} // namespace

void CANTransportThread::checkSingleFrame(TPCANMsg& frame)
{
    if (debugLevel > 1) {
        debugLine("checkSingleFrame") << frame;
    }
    const unsigned int length = lowNibbleOf(frame.data);
    if (expectedFrame != EXPECT_FIRST_OR_SINGLE || length > singleFrameBytes) {
        showErrorAndClearBuffer(frame);
        return;
    }
    startReception(static_cast<int>(length));
    addReceivedData(shortIdOf(frame), &frame.data[1], length);
    setTimer(Timing::answerTimeout); // for a message being sent; at rest, the loop stops the timer
}

void CANTransportThread::checkFirstFrame(TPCANMsg& frame)
{
    if (debugLevel > 1) {
        debugLine("checkFirstFrame") << frame;
    }
    if (expectedFrame != EXPECT_FIRST_OR_SINGLE) {
        showErrorAndClearBuffer(frame);
        return;
    }
    sequenceCounter = 0;
    startReception(static_cast<int>(announcedLengthOf(frame.data)));
    addReceivedData(shortIdOf(frame), &frame.data[2], firstFrameBytes);
    sendFlowControl(CTP_FC_READY_TO_RECEIVE);
}

void CANTransportThread::checkConsecutiveFrame(TPCANMsg& frame)
{
    if (debugLevel > 1) {
        debugLine("checkConsecutiveFrame") << frame;
    }
    if (expectedFrame != EXPECT_CONSECUTIVE) {
        showErrorAndClearBuffer(frame);
        return;
    }
    const auto sequenceNumber = static_cast<int>(lowNibbleOf(frame.data));
    if (sequenceNumber != sequenceCounter) {
        errorLine("checkConsecutiveFrame") << "sequence counter of consecutive frame wrong. Got "
                                           << sequenceNumber << " but expected " << sequenceCounter;
        refuseMessage();
        return;
    }
    if (remainingLength < 0) { // its first frame announced less than it carried
        errorLine("checkConsecutiveFrame")
            << "consecutive frame of a message that has " << -remainingLength << " bytes too many";
        refuseMessage();
        return;
    }
    sequenceCounter = (sequenceNumber + 1) % static_cast<int>(sequenceNumbers);
    const int count = std::min(remainingLength, static_cast<int>(consecutiveFrameBytes));
    addReceivedData(shortIdOf(frame), &frame.data[1], static_cast<unsigned int>(count));
}

/// Bytes left over from an earlier reception must not become part of the new message.
void CANTransportThread::startReception(int length)
{
    receiveBuffer.clear();
    receiveBuffer.reserve(static_cast<std::size_t>(length));
    receptionSpoiled = false;
    remainingLength = length;
}

void CANTransportThread::addReceivedData(unsigned short canID, const unsigned char* bytes,
                                         unsigned int count)
{
    if (debugLevel > 2) {
        debugLine("addReceivedData") << "canID=" << std::hex << canID;
    }
    if (!receptionSpoiled) {
        receiveBuffer.insert(receiveBuffer.end(), bytes, bytes + count);
    }
    remainingLength -= static_cast<int>(count);
    if (remainingLength > 0) {
        return;
    }
    const ReceptionEnd end{*this};
    // A spoiled message ends without an answer: the peer was refused when it was spoiled. A second refusal
    // of the same attempt would count against the peer's next one.
    if (!receptionSpoiled) {
        sendFlowControl(deliver(canID) ? CTP_FC_ACKNOWLEDGE : CTP_FC_NOT_ACKNOWLEDGE);
    }
}
