#include "velk/CANTransportThread.h"

#include "thread/DescriptorSet.h"
#include "thread/LogLine.h"

#include <mutex>

void CANTransportThread::processSendQueue() {}

void CANTransportThread::clear(bool includeCurrent)
{
    {
        const std::lock_guard<Mutex> lock(queueMutex);
        if (sendQueue.empty()) {
            // nothing changes, not even the state
        } else if (!includeCurrent && (state & RCTS_SENDING) != 0) {
            sendQueue.erase(sendQueue.begin() + 1, sendQueue.end());
        } else {
            sendQueue.clear();
            state &= ~(RCTS_SENDING | RCTS_WAIT_FOR_FC);
        }
    }
    if (debugLevel != 0) {
        LogLine::debug("clear") << "state = " << printState(state);
    }
}

bool CANTransportThread::sendQueueEmpty()
{
    if (inputPipe[0] == -1) {
        return false;
    }
    {
        const std::lock_guard<Mutex> lock(queueMutex);
        if (!sendQueue.empty()) {
            return false;
        }
    }
    DescriptorSet input(inputPipe[0]);
    input.fill();
    const timespec atOnce{0, 0};
    return ::pselect(input.count(), input.forSelect(), nullptr, nullptr, &atOnce, nullptr) == 0;
}
