#include "velk/CANTransportThread.h"

#include "velk/VelkException.h"

#include "thread/LogLine.h"

#include <cassert>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

const CANTransportThread::Frames::iterator CANTransportThread::MSGPART_INVALID{};

CANTransportThread::CANTransportThread(int level) : debugLevel(level) {}

CANTransportThread::~CANTransportThread()
{
    assert(!running() && "stop() has to come before the destructor");
    ::close(inputPipe[0]);
    ::close(inputPipe[1]);
    ::close(outputPipe[0]);
    ::close(outputPipe[1]);
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

void CANTransportThread::open(int& readDescriptor, int& writeDescriptor)
{
    if (traceBuffer) {
        VelkException error;
        error << "CANTransportThread::open(): the endpoint is open already";
        throw error;
    }
    if (::pipe(inputPipe) == -1 || ::pipe(outputPipe) == -1) {
        throwOpenError("failed to open pipe: ", errno);
    }
    const int flags = ::fcntl(inputPipe[0], F_GETFL);
    if (::fcntl(inputPipe[0], F_SETFL, flags | O_NONBLOCK) == -1) {
        throwOpenError("failed to set pipe non-blocking: ", errno);
    }
    traceBuffer = std::make_unique<TraceMessageBuffer>(inputPipe[0], nullptr);
    getFileDescriptors(readDescriptor, writeDescriptor);
}

void CANTransportThread::throwOpenError(const char* text, int error)
{
    const VelkException exception;
    LogLine::systemError("open", text, error);
    throw exception;
}

void CANTransportThread::getFileDescriptors(int& readDescriptor, int& writeDescriptor) const
{
    readDescriptor = outputPipe[0];
    writeDescriptor = inputPipe[1];
}
