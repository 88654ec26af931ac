// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"
#include "velk/LogUtil.h"

#include "LogLine.h"

/// The only place that sets the timer. Reception and sending share it: each value replaces the last.
void CANTransportThread::setSelectTimeout(int seconds, int milliseconds)
{
    selectTimeout.tv_sec = seconds;
    selectTimeout.tv_usec = milliseconds * 1000L;
    selectTimeoutLeft = selectTimeout;
    if (debugLevel > 1) {
        debugLine("setSelectTimeout") << "select timeout set to " << selectTimeout;
    }
}

void CANTransportThread::setTimer(std::chrono::milliseconds time)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    setSelectTimeout(static_cast<int>(seconds.count()), static_cast<int>((time - seconds).count()));
}
