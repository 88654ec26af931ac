#include "support/Endpoint.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
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

std::unique_ptr<MessageBase> next(TraceMessageBuffer& buffer)
{
    buffer.read();
    return buffer.getNextMessage();
}

} // namespace

Lines Endpoint::sent()
{
    Lines frames;
    while (const auto message = next(*proxy)) {
        const auto& frame = dynamic_cast<CANExtTraceMessage&>(*message);
        TPCANMsg record{frame.canID, frame.length, {}};
        std::copy_n(frame.data, 8, record.data);
        frames.push_back(hex(record));
        if (frame.canID != ownId || frame.length != 8) {
            frames.back() += " under another id or length";
        }
    }
    return frames;
}

std::vector<Bytes> Endpoint::delivered()
{
    std::vector<Bytes> messages;
    while (const auto message = next(*client)) {
        const auto& transport = dynamic_cast<CANTransportTraceMessage&>(*message);
        messages.push_back(transport.payload);
        lastDeliveredId = transport.canID;
    }
    return messages;
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
