// SPDX-License-Identifier: MIT
#include "velk/CANTransportFrame.h"
#include "velk/CANTransportThread.h"

#include "LogLine.h"

#include <algorithm>
#include <cstring>
#include <utility>

using namespace CANTransportFrame;

namespace {

using Frame = CANTransportThread::TPCANMsg;

void fillSingleFrame(Frame& frame, const unsigned char* bytes, unsigned int length)
{
    frame.data[0] = firstByte(CTP_SINGLE_FRAME, length);
    std::copy_n(bytes, length, &frame.data[1]);
}

void fillFirstFrame(Frame& frame, const unsigned char* bytes, unsigned int length)
{
    frame.data[0] = firstByte(CTP_FIRST_FRAME, length >> 8);
    frame.data[1] = static_cast<std::uint8_t>(length);
    std::copy_n(bytes, firstFrameBytes, &frame.data[2]);
}

/// Fills the frames after the first one; unused bytes of the last one stay 0.
void fillConsecutiveFrames(Frame* frame, const unsigned char* bytes, unsigned int length)
{
    constexpr unsigned int most = consecutiveFrameBytes;
    unsigned int sequenceNumber = 0;
    unsigned int left = length - firstFrameBytes;
    for (bytes += firstFrameBytes; left > most; left -= most, bytes += most, ++frame) {
        frame->data[0] = firstByte(CTP_CONSECUTIVE_FRAME, sequenceNumber++);
        std::memcpy(&frame->data[1], bytes, most); // of constant size: inlined
    }
    frame->data[0] = firstByte(CTP_CONSECUTIVE_FRAME, sequenceNumber);
    std::memcpy(&frame->data[1], bytes, left);
}

} // namespace

/// Splits a message of the client into frames and queues them. Starts to send at once if nothing else is in
/// progress.
void CANTransportThread::prepareData(const unsigned char* bytes, unsigned int length)
{
    if (length > MAX_MESSAGE_LENGTH) {
        errorLine("prepareData") << "message of " << length << " bytes refused, at most "
                                 << MAX_MESSAGE_LENGTH << " can be sent";
        return;
    }
    const TPCANMsg empty{sendCANid, dataBytes, {}};
    auto frames = std::make_unique<Frames>(frameCountOf(length), empty);
    if (length <= singleFrameBytes) {
        fillSingleFrame(frames->front(), bytes, length);
        if (debugLevel != 0) {
            debugLine("prepareData") << "single frame:  " << frames->front();
        }
    } else {
        fillFirstFrame(frames->front(), bytes, length);
        fillConsecutiveFrames(frames->data() + 1, bytes, length);
        if (debugLevel != 0) {
            debugLine("prepareData") << "consecutive frame:  ";
        }
    }
    {
        const MutexLock lock(queueMutex);
        sendQueue.push_back(std::move(frames));
    }
    if (state == RCTS_IDLE) {
        processSendQueue();
    }
}
