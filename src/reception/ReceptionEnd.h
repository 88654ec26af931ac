// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportThread.h"

/// Resets the reception at the end of a scope, also when a stop or an exception leaves it. In that case the
/// peer gets no answer and tries again from its first frame, which is then not refused.
struct CANTransportThread::ReceptionEnd {
    CANTransportThread& endpoint;

    ~ReceptionEnd()
    {
        endpoint.state &= ~RCTS_RECEIVING;
        endpoint.receiveBuffer.clear();
        endpoint.expectedFrame = EXPECT_FIRST_OR_SINGLE;
    }
};
