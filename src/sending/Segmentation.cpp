#include "velk/CANTransportThread.h"

#include "reception/FrameFormat.h"
#include "thread/LogLine.h"

#include <algorithm>
#include <mutex>

using namespace FrameFormat;

namespace {

using Frame = CANTransportThread::TPCANMsg;

void appendSingleFrame(std::vector<Frame>& frames, Frame frame, const unsigned char* bytes,
                       unsigned int length)
{
    frame.data[0] = firstByte(CANTransportThread::CTP_SINGLE_FRAME, length);
    std::copy_n(bytes, length, &frame.data[1]);
    frames.push_back(frame);
}

void appendFirstFrame(std::vector<Frame>& frames, Frame frame, const unsigned char* bytes,
                      unsigned int length)
{
    frame.data[0] = firstByte(CANTransportThread::CTP_FIRST_FRAME, length >> 8);
    frame.data[1] = static_cast<std::uint8_t>(length);
    std::copy_n(bytes, firstFrameBytes, &frame.data[2]);
    frames.push_back(frame);
}

void appendConsecutiveFrames(std::vector<Frame>& frames, const Frame& empty,
                             const unsigned char* bytes, unsigned int length)
{
    constexpr auto most = static_cast<unsigned int>(consecutiveFrameBytes);
    unsigned int sequenceNumber = 0;
    for (unsigned int position = firstFrameBytes; position < length; position += most) {
        Frame frame = empty; // the rest of the last frame stays 0
        frame.data[0] = firstByte(CANTransportThread::CTP_CONSECUTIVE_FRAME, sequenceNumber++);
        std::copy_n(bytes + position, std::min(length - position, most), &frame.data[1]);
        frames.push_back(frame);
    }
}

std::size_t frameCountOf(unsigned int length)
{
    if (length <= singleFrameBytes) {
        return 1;
    }
    constexpr auto most = static_cast<unsigned int>(consecutiveFrameBytes);
    return 1 + (length - firstFrameBytes + most - 1) / most;
}

} // namespace

/// Cuts a message of the client into frames, queues them, and starts with them at once if nothing
/// else is under way.
void CANTransportThread::prepareData(const unsigned char* bytes, unsigned int length)
{
    if (length > MAX_MESSAGE_LENGTH) {
        LogLine::error("prepareData") << "message of " << length << " bytes refused, at most "
                                      << MAX_MESSAGE_LENGTH << " can be sent";
        return;
    }
    auto frames = std::make_unique<Frames>();
    frames->reserve(frameCountOf(length));
    const TPCANMsg empty{sendCANid, dataBytes, {}};
    if (length <= singleFrameBytes) {
        appendSingleFrame(*frames, empty, bytes, length);
        if (debugLevel != 0) {
            LogLine::debug("prepareData") << "single frame:  " << frames->front();
        }
    } else {
        appendFirstFrame(*frames, empty, bytes, length);
        appendConsecutiveFrames(*frames, empty, bytes, length);
        if (debugLevel != 0) {
            LogLine::debug("prepareData") << "consecutive frame:  ";
        }
    }
    {
        const std::lock_guard<Mutex> lock(queueMutex);
        sendQueue.push_back(std::move(frames));
    }
    if (state == RCTS_IDLE) {
        processSendQueue();
    }
}
