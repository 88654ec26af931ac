// SPDX-License-Identifier: MIT
#include "support/Endpoint.h"

#include "support/Promise.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace {

/// What waits in the pipe: one read takes all that it can hold.
std::vector<std::unique_ptr<MessageBase>> takeAll(TraceMessageBuffer& buffer)
{
    std::vector<std::unique_ptr<MessageBase>> messages;
    buffer.read();
    while (auto message = buffer.getNextMessage()) {
        messages.push_back(std::move(message));
    }
    return messages;
}

/// A pipe that takes nothing: full, or without a reader. Who writes to that has SIGPIPE blocked.
int deadPipe(bool full)
{
    int ends[2] = {-1, -1};
    require(::pipe2(ends, O_NONBLOCK) == 0, "no dead pipe");
    if (!full) {
        ::close(ends[0]);
    }
    const Bytes page(4096);
    while (full && ::write(ends[1], page.data(), page.size()) > 0) {
    }
    return ends[1];
}

} // namespace

Endpoint::Endpoint(int level) : CANTransportThread(level)
{
    open(outputEnd, inputEnd);
    require(::pipe2(proxyPipe, O_NONBLOCK) == 0, "no pipe for the proxy");
    fcntl(outputEnd, F_SETFL, O_NONBLOCK);
    proxy = std::make_unique<TraceMessageBuffer>(proxyPipe[0], nullptr);
    client = std::make_unique<TraceMessageBuffer>(outputEnd, nullptr);
    setConnection(proxyPipe[1]);
    setSendCANid(ownId);
    std::function<void(statuschange_t, unsigned short)> listener = [this](statuschange_t status,
                                                                          unsigned short value) {
        std::ostringstream text;
        text << status << ' ' << value;
        heard.push_back(text.str());
        stateAtStatus = Access::state(*this);
        timerAtStatus = Access::timerUs(*this);
    };
    setDelegate(listener);
}

Endpoint::~Endpoint()
{
    ::close(proxyPipe[0]);
    ::close(proxyPipe[1]);
}

void Endpoint::frame(std::initializer_list<std::uint8_t> data, std::uint32_t canID)
{
    TPCANMsg message{canID, 8, {}};
    std::copy(data.begin(), data.end(), message.data);
    Access::handle(*this, message);
}

void Endpoint::request(const Bytes& message)
{
    write(bytesOf(CANTransportTraceMessage(message)));
    takeInput();
}

void Endpoint::write(const Bytes& bytes) const
{
    require(::write(inputEnd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            "the input pipe does not take the bytes");
}

std::vector<CANTransportThread::TPCANMsg> Endpoint::sentFrames()
{
    std::vector<TPCANMsg> frames;
    for (const auto& message : takeAll(*proxy)) {
        const auto& record = dynamic_cast<CANExtTraceMessage&>(*message);
        TPCANMsg frame{record.canID, record.length, {}};
        std::copy_n(record.data, 8, frame.data);
        frames.push_back(frame);
    }
    return frames;
}

Lines Endpoint::sent()
{
    Lines lines;
    for (const TPCANMsg& frame : sentFrames()) {
        const bool own = frame.canID == ownId && frame.len == 8;
        lines.push_back(hex(frame) + (own ? "" : " under another id or length"));
    }
    return lines;
}

std::vector<Bytes> Endpoint::delivered()
{
    std::vector<Bytes> messages;
    for (const auto& message : takeAll(*client)) {
        const auto& transport = dynamic_cast<CANTransportTraceMessage&>(*message);
        messages.push_back(transport.payload);
        lastDeliveredId = transport.canID;
    }
    return messages;
}

void Endpoint::breakProxy(bool full)
{
    static const int dead[2] = {deadPipe(false), deadPipe(true)};
    setConnection(dead[full ? 1 : 0]);
}

void Endpoint::breakClient() { savedOutput = std::exchange(Access::output(*this)[1], -1); }

void Endpoint::mendClient() { Access::output(*this)[1] = std::exchange(savedOutput, -1); }

Access::Snapshot Access::snapshot(CANTransportThread& e)
{
    const MutexLock lock(e.queueMutex);
    const bool queued = !e.sendQueue.empty();
    const bool sending = (e.state & CANTransportThread::RCTS_SENDING) != 0;
    const auto position = sending ? e.msgPart - e.sendQueue.front()->begin() : 0;
    return {e.sendCANid,
            e.state,
            e.expectedFrame == CANTransportThread::EXPECT_CONSECUTIVE,
            e.sequenceCounter,
            e.remainingLength,
            e.receiveBuffer,
            e.receptionSpoiled,
            e.sendQueue.size(),
            queued ? *e.sendQueue.front() : std::vector<TPCANMsg>{},
            queued ? *e.sendQueue.back() : std::vector<TPCANMsg>{},
            static_cast<std::size_t>(position),
            e.sendRetry,
            e.connected,
            e.reportFailure,
            inUs(e.selectTimeout),
            inUs(e.selectTimeoutLeft)};
}

Lines Endpoint::statuses() { return std::exchange(heard, {}); }

Bytes bytesOf(const MessageBase& message)
{
    Bytes bytes;
    message.createByteArray(bytes, true, false);
    return bytes;
}

Bytes recordOf(const CANTransportThread::TPCANMsg& frame)
{
    return bytesOf(CANExtTraceMessage(frame.canID, frame.data, frame.len));
}

Bytes pattern(std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 7 + i / 256 + 1);
    }
    return bytes;
}

std::vector<CANTransportThread::TPCANMsg> cut(const Bytes& message)
{
    Bytes bytes;
    const auto add = [&bytes](std::size_t byte) {
        bytes.push_back(static_cast<unsigned char>(byte));
    };
    if (message.size() > 7) {
        add(0x10 | message.size() >> 8);
    }
    add(message.size());
    for (const unsigned char byte : message) {
        if (bytes.size() % 8 == 0) {
            add(0x20 | (bytes.size() / 8 - 1) % 16);
        }
        add(byte);
    }
    bytes.resize((bytes.size() + 7) / 8 * 8);
    std::vector<CANTransportThread::TPCANMsg> frames;
    for (std::size_t at = 0; at < bytes.size(); at += 8) {
        frames.push_back({Endpoint::peerId, 8, {}});
        std::copy_n(bytes.data() + at, 8, frames.back().data);
    }
    return frames;
}

std::string hex(const CANTransportThread::TPCANMsg& frame)
{
    std::string text;
    for (const unsigned char byte : frame.data) {
        constexpr const char* digits = "0123456789abcdef";
        text += std::string(text.empty() ? "" : " ") + digits[byte >> 4] + digits[byte & 15];
    }
    return text;
}

std::string fc(int code) { return "3" + std::to_string(code) + " 00 00 00 00 00 00 00"; }

std::ptrdiff_t countEntries(const char* folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), {});
}
