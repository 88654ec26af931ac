// SPDX-License-Identifier: MIT
#include "velk/CANTransportThread.h"

#include "velk/Pipe.h"
#include "velk/VelkException.h"

#include "LogLine.h"

#include <cassert>
#include <cerrno>
#include <utility>

CANTransportThread::Outlet::~Outlet() = default;

CANTransportThread::CANTransportThread(int level) : debugLevel(level)
{
    obstacle = "open() has to succeed first";
}

CANTransportThread::~CANTransportThread()
{
    assert(!running() && "stop() has to come before the destructor");
    closePipe(inputPipe);
    closePipe(outputPipe);
    clear(true);
    traceBuffer.reset();
}

void CANTransportThread::setConnection(int descriptor) { canProxyFD = descriptor; }

void CANTransportThread::setSendCANid(unsigned short canID) { sendCANid = canID; }

void CANTransportThread::setDelegate(std::function<void(statuschange_t, unsigned short)>& function)
{
    delegate = function;
}

void CANTransportThread::setDebugLevel(int level) { debugLevel = level; }

void CANTransportThread::setLogSink(LogUtil::Sink function) { logSink = std::move(function); }

void CANTransportThread::open(int& readDescriptor, int& writeDescriptor)
{
    if (std::exchange(openCalled, true)) {
        throwVelkException("CANTransportThread::open(): called before on this object");
    }
    if (!createPipe(inputPipe) || !createPipe(outputPipe)) {
        throwOpenError("failed to open pipe: ", errno);
    }
    if (!setNonBlocking(inputPipe[0])) {
        throwOpenError("failed to set pipe non-blocking: ", errno);
    }
    traceBuffer = std::make_unique<TraceMessageBuffer>(inputPipe[0], nullptr);
    obstacle = nullptr;
    getFileDescriptors(readDescriptor, writeDescriptor);
}

void CANTransportThread::throwOpenError(const char* text, int error) const
{
    const VelkException exception;
    logSystemError("open", text, error);
    throw exception;
}

void CANTransportThread::getFileDescriptors(int& readDescriptor, int& writeDescriptor) const
{
    readDescriptor = outputPipe[0];
    writeDescriptor = inputPipe[1];
}
