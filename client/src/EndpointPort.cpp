#include "EndpointPort.h"

#include "velk/Pipe.h"
#include "velk/TraceRecord.h"

#include "Failure.h"

#include <algorithm>
#include <cerrno>
#include <functional>

#include <sys/mman.h>
#include <unistd.h>

namespace {

/// What the endpoint gets at once. All messages that so much input can complete fit the smallest pipe that
/// the system gives, two pages.
constexpr std::size_t portion = 4096;

Descriptor createOutput()
{
    Descriptor file = aboveStandardStreams(Descriptor(memfd_create("velkcan", MFD_CLOEXEC)));
    if (file.get() == -1) {
        throwErrno("no memory file for the endpoint", errno);
    }
    return file;
}

/// Opens the endpoint. @return the descriptor of its messages.
int open(CANTransportThread& endpoint, LogLimiter& log, int& messageEnd, int& input)
{
    endpoint.setLogSink(
        [&log](LogUtil::Level level, const std::string& line) { log.pass(level, line); });
    endpoint.open(messageEnd, input);
    setNonBlocking(messageEnd);
    setNonBlocking(input);
    return messageEnd;
}

} // namespace

EndpointPort::EndpointPort(const CANTransportClient::Options& options, LogLimiter& log)
    : output(createOutput()),
      endpoint(log.isActive() ? options.debugLevel : 0),
      messages(open(endpoint, log, messageEnd, input), nullptr)
{
    endpoint.setConnection(output.get());
    endpoint.setSendCANid(options.sendId);
    std::function<void(CANTransportThread::statuschange_t, unsigned short)> delegate =
        [this](CANTransportThread::statuschange_t status, unsigned short value) {
            changes.push_back({status, value});
        };
    endpoint.setDelegate(delegate);
    endpointRun.emplace(endpoint);
}

void EndpointPort::addFrame(const Frame& frame)
{
    const std::size_t at = added.size();
    added.resize(at + TraceRecord::frameSize(frame.len));
    TraceRecord::encodeFrameRecord(&added[at], {frame.canID, frame.len, frame.data, 0, 0, 0, 0});
}

void EndpointPort::addRequest(const Bytes& message)
{
    CANTransportTraceMessage(message).createByteArray(added, true, true);
}

bool EndpointPort::run()
{
    if (!allTaken()) {
        return false;
    }
    if (isBehind()) {
        feed();
    } else if (!endpointRun->handleExpiry()) {
        return false;
    }
    collect();
    return true;
}

bool EndpointPort::allTaken() const
{
    return taken == frames.size() && changes.empty() && messages.empty();
}

/// The pipe is empty, so it takes the whole portion.
void EndpointPort::feed()
{
    const std::size_t size = std::min(portion, added.size() - used);
    if (write(input, &added[used], size) != static_cast<ssize_t>(size)) {
        throwErrno("the endpoint takes no input", errno);
    }
    used += size;
    if (!isBehind()) {
        added.clear();
        used = 0;
    }
    endpointRun->handleInput();
}

/// Takes over what the endpoint has written. With each message it writes a frame for the bus, so where there is
/// none there is no message.
void EndpointPort::collect()
{
    frames.clear();
    taken = 0;
    const off_t size = lseek(output.get(), 0, SEEK_CUR);
    if (size <= 0) {
        return;
    }
    frames.resize(static_cast<std::size_t>(size));
    if (pread(output.get(), frames.data(), frames.size(), 0) != size ||
        lseek(output.get(), 0, SEEK_SET) != 0) {
        throwErrno("the endpoint's frames cannot be read", errno);
    }
    messages.read();
}

std::optional<EndpointPort::Frame> EndpointPort::takeFrame()
{
    if (taken == frames.size()) {
        return std::nullopt;
    }
    const TraceRecord::FrameBody body =
        TraceRecord::decodeFrame(&frames[taken] + TraceRecord::headerSize);
    taken += TraceRecord::frameSize(body.length);
    Frame frame{body.canID, body.length, {}};
    std::copy_n(body.data, body.length, frame.data);
    return frame;
}

std::optional<EndpointPort::StatusChange> EndpointPort::takeStatus()
{
    if (changes.empty()) {
        return std::nullopt;
    }
    const StatusChange change = changes.front();
    changes.pop_front();
    return change;
}

std::optional<CANTransportClient::Message> EndpointPort::takeMessage()
{
    TraceRecord::View record;
    if (!messages.getNextRecord(record)) {
        return std::nullopt;
    }
    const unsigned char* const body = record.bytes + TraceRecord::headerSize;
    return CANTransportClient::Message{
        TraceRecord::get<std::uint32_t>(body),
        Bytes(body + TraceRecord::transportPayloadOffset, record.bytes + record.size)};
}
