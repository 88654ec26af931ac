#include "support/Endpoint.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

Endpoint::Endpoint(int level) : CANTransportThread(level)
{
    open(outputEnd, inputEnd);
    if (::pipe2(proxyPipe, O_NONBLOCK) == -1) {
        throw std::runtime_error("no pipe for the proxy");
    }
    // The client's end blocks; a file description of its own lets the tests look without waiting.
    const std::string path = "/proc/self/fd/" + std::to_string(outputEnd);
    proxy = std::make_unique<TraceMessageBuffer>(proxyPipe[0], nullptr);
    clientEnd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
    client = std::make_unique<TraceMessageBuffer>(clientEnd, nullptr);
    setConnection(proxyPipe[1]);
    setSendCANid(ownId);
    std::function<void(statuschange_t, unsigned short)> listener = [this](statuschange_t status,
                                                                          unsigned short value) {
        std::ostringstream text;
        text << status << ' ' << value;
        heard.push_back(text.str());
    };
    setDelegate(listener);
}

Endpoint::~Endpoint()
{
    ::close(clientEnd);
    ::close(proxyPipe[0]);
    ::close(proxyPipe[1]);
}

void Endpoint::frame(std::initializer_list<int> data, std::uint32_t canID)
{
    TPCANMsg message{canID, 8, {}};
    std::transform(data.begin(), data.end(), message.data,
                   [](int byte) { return static_cast<std::uint8_t>(byte); });
    Access::handle(*this, message);
}

void Endpoint::framesOf(const Bytes& message, std::size_t from, std::size_t to)
{
    const auto frames = cut(message);
    for (std::size_t i = from; i < std::min(to, frames.size()); ++i) {
        Access::handle(*this, frames[i]);
    }
}

void Endpoint::request(const Bytes& message)
{
    write(bytesOf(CANTransportTraceMessage(message)));
    takeInput();
}

void Endpoint::write(const Bytes& bytes) const
{
    if (::write(inputEnd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("the input pipe does not take the bytes");
    }
}

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

int fullPipe()
{
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_NONBLOCK) == -1) {
        throw std::runtime_error("no full pipe");
    }
    const Bytes page(4096);
    while (::write(ends[1], page.data(), page.size()) > 0) {
    }
    return ends[1];
}

/// Nobody reads from it. Who writes to it has SIGPIPE blocked.
int brokenPipe()
{
    int ends[2] = {-1, -1};
    if (::pipe(ends) == -1) {
        throw std::runtime_error("no broken pipe");
    }
    ::close(ends[0]);
    return ends[1];
}

} // namespace

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
    static const int broken[2] = {fullPipe(), brokenPipe()};
    setConnection(full ? broken[0] : broken[1]);
}

void Endpoint::breakClient() { savedOutput = std::exchange(Access::outputWriteEnd(*this), -1); }

void Endpoint::mendClient() { Access::outputWriteEnd(*this) = std::exchange(savedOutput, -1); }

int Endpoint::outputWaiting() const
{
    int bytes = 0;
    ioctl(clientEnd, FIONREAD, &bytes);
    return bytes;
}

CANTransportThreadAccess::Snapshot CANTransportThreadAccess::snapshot(CANTransportThread& e)
{
    const std::size_t frames = e.sendQueue.empty() ? 0 : e.sendQueue.front()->size();
    const bool sending = (e.state & CANTransportThread::RCTS_SENDING) != 0;
    const auto position = sending ? e.msgPart - e.sendQueue.front()->begin() : 0;
    return {e.state,
            receiving(e),
            e.sequenceCounter,
            e.remainingLength,
            e.receiveBuffer.size(),
            e.receptionSpoiled,
            e.sendQueue.size(),
            frames,
            static_cast<std::size_t>(position),
            e.sendRetry,
            e.connected,
            inUs(e.selectTimeoutLeft)};
}

Lines Endpoint::statuses()
{
    Lines result;
    result.swap(heard);
    return result;
}

long Endpoint::timerMs()
{
    const timeval& left = Access::timeLeft(*this);
    return left.tv_sec * 1000 + left.tv_usec / 1000;
}

Bytes bytesOf(const MessageBase& message)
{
    Bytes bytes;
    message.createByteArray(bytes, true, false);
    return bytes;
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
    using Frame = CANTransportThread::TPCANMsg;
    std::vector<Frame> frames;
    const auto size = message.size();
    Frame first{Endpoint::peerId, 8, {}};
    if (size < 8) {
        first.data[0] = static_cast<std::uint8_t>(size);
        std::copy(message.begin(), message.end(), first.data + 1);
        return {first};
    }
    first.data[0] = static_cast<std::uint8_t>(0x10 | (size >> 8));
    first.data[1] = static_cast<std::uint8_t>(size);
    std::copy_n(message.begin(), 6, first.data + 2);
    frames.push_back(first);
    for (std::size_t at = 6, number = 0; at < size; at += 7, ++number) {
        Frame next{Endpoint::peerId, 8, {}};
        next.data[0] = static_cast<std::uint8_t>(0x20 | (number % 16));
        std::copy_n(message.begin() + static_cast<std::ptrdiff_t>(at),
                    std::min<std::size_t>(7, size - at), next.data + 1);
        frames.push_back(next);
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

std::string fc(int code)
{
    CANTransportThread::TPCANMsg frame{0, 8, {}};
    frame.data[0] = static_cast<std::uint8_t>(0x30 | code);
    return hex(frame);
}
