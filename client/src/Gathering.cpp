// SPDX-License-Identifier: MIT
#include "Gathering.h"

#include "velk/CANTransportFrame.h"

#include <algorithm>

using namespace std::chrono_literals;

namespace {

constexpr unsigned int lastFrames = 4; ///< The last frames of a message never gather.
constexpr auto worthwhile = 250us;     ///< A shorter pause costs more than it saves.

} // namespace

void Gathering::onFrame(const CANTransportThread::TPCANMsg& frame)
{
    using namespace CANTransportFrame;
    switch (kindOf(frame.data)) {
    case CTP_FIRST_FRAME: // the time to the next frame depends on the peer, not on the bus
        missing = frameCountOf(announcedLengthOf(frame.data)) - 1;
        untimed = 0;
        timing = false;
        return;
    case CTP_CONSECUTIVE_FRAME:
        missing -= missing > 0 ? 1 : 0;
        ++untimed;
        return;
    case CTP_SINGLE_FRAME:
        missing = 0;
        return;
    case CTP_FLOW_CONTROL:
        return;
    }
}

void Gathering::onTaken(Time now)
{
    if (untimed == 0) {
        return;
    }
    if (timing) {
        frameTime = std::min(most, now - lastTaken) / untimed;
    }
    timing = true;
    lastTaken = now;
    untimed = 0;
}

Gathering::Duration Gathering::pause() const
{
    if (missing <= lastFrames) {
        return Duration::zero();
    }
    const Duration time = std::min(most, frameTime * (missing - lastFrames));
    return time < worthwhile ? Duration::zero() : time;
}
