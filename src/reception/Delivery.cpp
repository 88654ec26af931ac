// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"
#include "velk/CancellableScope.h"

#include "LogLine.h"

#include <cerrno>
#include <utility>

#include <unistd.h>

/// The one way to the client: its pipe, which blocks while the client does not read, or its outlet.
/// @return whether the message was taken.
bool CANTransportThread::deliver(unsigned short canID)
{
    if (outlet != nullptr) {
        outlet->onMessage(canID, receiveBuffer);
        return true;
    }
    CANTransportTraceMessage message(std::move(receiveBuffer), canID);
    std::vector<unsigned char> bytes;
    message.createByteArray(bytes, true, false);
    receiveBuffer = std::move(message.payload); // the next message reuses its capacity
    ssize_t written = 0;
    int error = 0;
    {
        const CancellableScope cancellable;
        written = ::write(outputPipe[1], bytes.data(), bytes.size());
        error = errno;
    }
    if (written == -1) {
        logSystemError("addReceivedData", "failed to write data to pipe: ", error);
    }
    return written != -1;
}
