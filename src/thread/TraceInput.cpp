#include "velk/CANTransportThread.h"

#include "velk/BufferMismatchException.h"
#include "velk/Hexdump.h"
#include "velk/VelkException.h"

#include "thread/LogLine.h"

#include <algorithm>
#include <cerrno>
#include <iostream>

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

/// Takes every complete message that has arrived and hands each to its operation.
void CANTransportThread::handleData()
{
    if (!readTraceMessages()) {
        return;
    }
    handleFramesAtHand();
    while (const std::unique_ptr<MessageBase> message = getNextTraceMessage()) {
        handleTraceMessage(*message);
        handleFramesAtHand();
    }
}

void CANTransportThread::handleTraceMessage(const MessageBase& message)
{
    if (debugLevel != 0) {
        LogLine line = LogLine::debug("handleData");
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
        LogLine::error("handleData") << "unknown trace-message id found.";
        const unsigned char* bytes = message.rawBytes.data();
        hexdump(std::cerr, bytes, bytes + message.rawBytes.size(),
                "[ERROR] CANTransportThread:", 16U, HEXDUMP_OFFSET, true);
        break;
    }
    }
}

/// Frames come by hundreds, so they do without a message object, but for those that are logged.
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
        LogLine::error("getNextTraceMessage") << "Got exception: " << exception;
        return nullptr;
    }
}

bool CANTransportThread::readTraceMessages()
{
    const bool done = traceBuffer->read() != -1;
    if (!done) {
        LogLine::systemError("getNextTraceMessage", "failed to read data: ", errno);
    }
    return done;
}
