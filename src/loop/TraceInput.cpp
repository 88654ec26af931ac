// SPDX-License-Identifier: MIT
#include "velk/BufferMismatchException.h"
#include "velk/CANTransportThread.h"
#include "velk/VelkException.h"

#include "LogLine.h"

#include <algorithm>
#include <cerrno>

namespace {

CANTransportThread::TPCANMsg toFrame(const CANTraceMessageBase& message)
{
    CANTransportThread::TPCANMsg frame{};
    if (message.length > sizeof frame.data) {
        throw BufferMismatchException("CANTraceMessageBase too long");
    }
    frame.canID = message.canID;
    frame.len = message.length;
    std::copy_n(message.data, message.length, frame.data);
    return frame;
}

} // namespace

/// Passes every complete trace message that has arrived to its handler.
void CANTransportThread::handleData()
{
    const bool hadEnded = traceBuffer->atEnd();
    if (!readTraceMessages()) {
        return;
    }
    handleFramesAtHand();
    while (const std::unique_ptr<MessageBase> message = getNextTraceMessage()) {
        handleTraceMessage(*message);
        handleFramesAtHand();
    }
    if (!hadEnded && traceBuffer->atEnd()) {
        clientErrorLine("handleData") << "the input has ended: its write end was closed";
    }
}

void CANTransportThread::handleTraceMessage(const MessageBase& message)
{
    if (debugLevel != 0) {
        LogLine line = debugLine("handleData");
        message.print((line << "CAN data received:  ").out());
    }
    switch (message.id) {
    case CAN_TRACE_MSG:
    case CAN_EXT_TRACE_MSG:
    case CAN_ALT_TRACE_MSG: {
        TPCANMsg frame = toFrame(static_cast<const CANTraceMessageBase&>(message));
        handleCANData(frame);
        break;
    }
    case CAN_TRANSPORT_TRACE_MSG: {
        const auto& payload = static_cast<const CANTransportTraceMessage&>(message).payload;
        prepareData(payload.data(), static_cast<unsigned int>(payload.size()));
        break;
    }
    default: {
        errorLine("handleData") << "unknown trace-message id found.";
        logBytes(message.rawBytes);
        break;
    }
    }
}

/// Frames arrive by the hundred, so they become message objects only if they are logged.
void CANTransportThread::handleFramesAtHand()
{
    TPCANMsg frame{};
    while (debugLevel == 0 && traceBuffer->getNextFrame(frame.canID, frame.len, frame.data)) {
        handleCANData(frame);
    }
}

std::unique_ptr<MessageBase> CANTransportThread::getNextTraceMessage()
{
    if (!readTraceMessages()) {
        return nullptr;
    }
    try {
        return traceBuffer->getNextMessage();
    } catch (const VelkException& exception) {
        errorLine("getNextTraceMessage") << "Got exception: " << exception;
        return nullptr;
    }
}

bool CANTransportThread::readTraceMessages()
{
    const bool done = traceBuffer->read() != -1;
    if (!done) {
        logSystemError("getNextTraceMessage", "failed to read data: ", errno);
    }
    return done;
}
