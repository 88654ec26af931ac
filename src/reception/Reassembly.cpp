#include "velk/CANTransportThread.h"

#include "reception/FrameFormat.h"
#include "reception/ReceptionEnd.h"
#include "thread/LogLine.h"

#include <algorithm>

using namespace FrameFormat;

namespace {

unsigned short shortIdOf(const CANTransportThread::TPCANMsg& frame)
{
    return static_cast<unsigned short>(frame.canID);
}

} // namespace

void CANTransportThread::checkSingleFrame(TPCANMsg& frame)
{
    if (debugLevel > 1) {
        LogLine::debug("checkSingleFrame") << frame;
    }
    const auto length = static_cast<unsigned int>(lowNibbleOf(frame));
    if (expectedFrame != EXPECT_FIRST_OR_SINGLE || length > singleFrameBytes) {
        showErrorAndClearBuffer(frame);
        return;
    }
    startReception(static_cast<int>(length));
    addReceivedData(shortIdOf(frame), &frame.data[1], length);
    setSelectTimeout(1, 0);
}

void CANTransportThread::checkFirstFrame(TPCANMsg& frame)
{
    if (debugLevel > 1) {
        LogLine::debug("checkFirstFrame") << frame;
    }
    if (expectedFrame != EXPECT_FIRST_OR_SINGLE) {
        showErrorAndClearBuffer(frame);
        return;
    }
    sequenceCounter = 0;
    startReception(announcedLengthOf(frame));
    addReceivedData(shortIdOf(frame), &frame.data[2], firstFrameBytes);
    sendFlowControl(CTP_FC_READY_TO_RECEIVE);
}

void CANTransportThread::checkConsecutiveFrame(TPCANMsg& frame)
{
    if (debugLevel > 1) {
        LogLine::debug("checkConsecutiveFrame") << frame;
    }
    if (expectedFrame != EXPECT_CONSECUTIVE) {
        showErrorAndClearBuffer(frame);
        return;
    }
    const int sequenceNumber = lowNibbleOf(frame);
    if (sequenceNumber != sequenceCounter) {
        LogLine::error("checkConsecutiveFrame")
            << "sequence counter of consecutive frame wrong. Got " << sequenceNumber
            << " but expected " << sequenceCounter;
        refuseMessage();
        return;
    }
    if (remainingLength < 0) { // behind a first frame that announced less than it carries
        LogLine::error("checkConsecutiveFrame")
            << "consecutive frame of a message that has " << -remainingLength << " bytes too many";
        refuseMessage();
        return;
    }
    sequenceCounter = (sequenceNumber + 1) % sequenceNumbers;
    const int count = std::min(remainingLength, consecutiveFrameBytes);
    addReceivedData(shortIdOf(frame), &frame.data[1], static_cast<unsigned int>(count));
}

/// What an ended reception has left behind must not get in front of the new message.
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
        LogLine::debug("addReceivedData") << "canID=" << std::hex << canID;
    }
    if (!receptionSpoiled) {
        receiveBuffer.insert(receiveBuffer.end(), bytes, bytes + count);
    }
    remainingLength -= static_cast<int>(count);
    if (remainingLength > 0) {
        return;
    }
    const ReceptionEnd end{*this};
    // Of a spoiled message only the tail is at hand. The peer has been told when it was spoiled; a
    // second refusal for the same attempt would count against its next one.
    if (!receptionSpoiled) {
        sendFlowControl(deliver(canID) ? CTP_FC_ACKNOWLEDGE : CTP_FC_NOT_ACKNOWLEDGE);
    }
}
