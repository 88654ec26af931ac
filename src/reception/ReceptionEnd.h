#pragma once

#include "velk/CANTransportThread.h"

/// Resets reception at the end of a scope, also when a stop or an exception leaves it: the peer, left
/// without an answer, then tries again with a first frame and is not refused.
struct CANTransportThread::ReceptionEnd {
    CANTransportThread& endpoint;

    ~ReceptionEnd()
    {
        endpoint.state &= ~RCTS_RECEIVING;
        endpoint.receiveBuffer.clear();
        endpoint.expectedFrame = EXPECT_FIRST_OR_SINGLE;
    }
};
