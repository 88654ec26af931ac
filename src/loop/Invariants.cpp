// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"

#include <cassert>

/// What must hold between two events. Checked after each event in debug builds.
void CANTransportThread::checkInvariants()
{
#ifndef NDEBUG
    const MutexLock lock(queueMutex); // no clear() between the checks
    const int flags = state;
    assert((flags & ~(RCTS_SENDING | RCTS_RECEIVING | RCTS_WAIT_FOR_FC)) == 0);
    if ((flags & RCTS_WAIT_FOR_FC) != 0) {
        assert((flags & RCTS_SENDING) != 0);
    }
    if ((flags & RCTS_SENDING) != 0) {
        assert(!sendQueue.empty());
        assert(msgPart >= sendQueue.front()->begin() && msgPart <= sendQueue.front()->end());
    }
    assert(sequenceCounter >= 0 && sequenceCounter <= 15);
    assert(sendRetry >= 0 && sendRetry <= SEND_RETRY_LIMIT);
    assert(receiveBuffer.size() <= MAX_MESSAGE_LENGTH);
    if (expectedFrame == EXPECT_CONSECUTIVE && receptionSpoiled) {
        assert(receiveBuffer.empty());
    }
#endif
}
