#include "EndpointPort.h"

#include "velk/CancellableScope.h"
#include "velk/Millisleep.h"
#include "velk/Pipe.h"
#include "velk/TraceRecord.h"

#include "Failure.h"

#include <algorithm>
#include <cerrno>
#include <functional>

#include <sys/ioctl.h>
#include <unistd.h>

namespace {

using TraceRecord::get;
using TraceRecord::put;

// The record of a status change on its way to the mover; no trace message uses this id.
constexpr msgid_t statusId = 0x7FFF;
constexpr std::size_t valueOffset = TraceRecord::headerSize + 4;
constexpr std::size_t statusSize = valueOffset + 2;

std::optional<TraceRecord::View> nextRecord(TraceMessageBuffer& buffer)
{
    TraceRecord::View record;
    return buffer.getNextRecord(record) ? std::make_optional(record) : std::nullopt;
}

int bytesIn(int pipe)
{
    int count = 0;
    return ioctl(pipe, FIONREAD, &count) == 0 ? count : 0;
}

} // namespace

EndpointPort::Pipe::Pipe()
{
    if (!createPipe(ends)) {
        throwErrno("no pipe for the endpoint", errno);
    }
}

EndpointPort::Pipe::~Pipe() { closePipe(ends); }

EndpointPort::EndpointPort(const CANTransportClient::Options& options, LogLimiter& log)
    : endpoint(log.isActive() ? options.debugLevel : 0),
      outputs(outputPipe.ends[0], nullptr),
      messages(openEndpoint(log), nullptr)
{
    setNonBlocking(outputPipe.ends[0]);
    setNonBlocking(messageEnd);
    setNonBlocking(input);
    endpoint.setConnection(outputPipe.ends[1]);
    endpoint.setSendCANid(options.sendId);
    std::function<void(CANTransportThread::statuschange_t, unsigned short)> delegate =
        [this](CANTransportThread::statuschange_t status, unsigned short value) {
            onStatus(status, value);
        };
    endpoint.setDelegate(delegate);
    endpoint.start();
}

int EndpointPort::openEndpoint(LogLimiter& log)
{
    endpoint.setLogSink(
        [&log](LogUtil::Level level, const std::string& line) { log.pass(level, line); });
    endpoint.open(messageEnd, input);
    return messageEnd;
}

EndpointPort::~EndpointPort() { endpoint.stop(); }

void EndpointPort::addFrame(const Frame& frame)
{
    const std::size_t at = pending.size();
    pending.resize(at + TraceRecord::frameSize(frame.len));
    TraceRecord::encodeFrameRecord(&pending[at], {frame.canID, frame.len, frame.data, 0, 0, 0, 0});
}

void EndpointPort::addRequest(const Bytes& message)
{
    CANTransportTraceMessage(message).createByteArray(pending, true, true);
}

void EndpointPort::feed()
{
    if (!isBehind()) {
        return;
    }
    const ssize_t written = write(input, &pending[used], pending.size() - used);
    if (written > 0) {
        used += static_cast<std::size_t>(written);
    }
    if (!isBehind()) {
        pending.clear();
        used = 0;
    }
}

/// Runs on the endpoint's thread. A pipe takes so few bytes completely or not at all. If the pipe is full,
/// a stop can interrupt the write.
void EndpointPort::onStatus(CANTransportThread::statuschange_t status, unsigned short value) const
{
    unsigned char record[statusSize];
    TraceRecord::encodeHeader(record, statusId, statusSize, 0);
    put(record + TraceRecord::headerSize, static_cast<std::uint32_t>(status));
    put(record + valueOffset, value);
    const CancellableScope cancellable;
    while (write(outputPipe.ends[1], record, sizeof record) == -1 && errno == EINTR) {
    }
}

std::optional<EndpointPort::Output> EndpointPort::takeOutput()
{
    const auto record = nextRecord(outputs);
    if (!record) {
        return std::nullopt;
    }
    if (record->id == statusId) {
        const auto status = get<std::uint32_t>(record->bytes + TraceRecord::headerSize);
        return StatusChange{static_cast<CANTransportThread::statuschange_t>(status),
                            get<std::uint16_t>(record->bytes + valueOffset)};
    }
    const TraceRecord::FrameBody body = record->frame();
    Frame frame{body.canID, body.length, {}};
    std::copy_n(body.data, body.length, frame.data);
    return frame;
}

std::optional<CANTransportClient::Message> EndpointPort::takeMessage()
{
    const auto record = nextRecord(messages);
    if (!record) {
        return std::nullopt;
    }
    const unsigned char* const body = record->bytes + TraceRecord::headerSize;
    return CANTransportClient::Message{
        get<std::uint32_t>(body),
        Bytes(body + TraceRecord::transportPayloadOffset, record->bytes + record->size)};
}

bool EndpointPort::hasUnreadOutput() const { return bytesIn(outputPipe.ends[0]) > 0; }

bool EndpointPort::hasUnreadMessages() const { return bytesIn(messageEnd) > 0; }

/// A stop could come between a delivery and its acknowledgement. A byte that is written after the endpoint
/// has read everything is read only after both. This byte starts a record that is never completed.
void EndpointPort::settle()
{
    int leftMs = 500;
    for (; isBehind() && leftMs > 0; --leftMs) {
        millisleep(1);
        feed();
    }
    waitUntilRead(leftMs);
    if (!isBehind() && write(input, &TraceRecord::firstByte, 1) == 1) {
        waitUntilRead(leftMs);
    }
}

void EndpointPort::waitUntilRead(int& leftMs) const
{
    for (; leftMs > 0 && bytesIn(input) > 0; --leftMs) {
        millisleep(1);
    }
}
