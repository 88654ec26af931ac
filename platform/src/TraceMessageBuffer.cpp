#include "velk/TraceMessageBuffer.h"

#include "velk/VelkException.h"

#include "TraceFormat.h"

#include <algorithm>
#include <cerrno>
#include <string>

#include <unistd.h>

using TraceFormat::get;
using TraceFormat::headerSize;

namespace {

constexpr std::size_t readSize = 65536;
constexpr std::size_t idleCapacity = 512; ///< Kept while nothing waits; more is given back.
constexpr std::size_t decisiveSize = 8;   ///< Marker, id and length: enough to judge a header.
constexpr unsigned char markerStart = TraceFormat::marker & 0xFF;
constexpr std::size_t longestSent = headerSize + TraceFormat::transportPayloadOffset + 4095;

bool lengthFitsId(msgid_t id, std::size_t length)
{
    if (TraceFormat::isCanFrame(id)) {
        constexpr std::size_t shortest = headerSize + TraceFormat::canDataOffset;
        return length >= shortest && length <= shortest + CANTraceMessageBase::maxDataLength;
    }
    const std::size_t body =
        id == CAN_TRANSPORT_TRACE_MSG ? TraceFormat::transportPayloadOffset : 0;
    return length >= headerSize + body && length <= TraceFormat::maxRecordSize;
}

bool bodyFitsId(msgid_t id, const unsigned char* record, std::size_t length)
{
    return !TraceFormat::isCanFrame(id) ||
           length == headerSize + TraceFormat::canDataOffset +
                         record[headerSize + TraceFormat::canLengthOffset];
}

std::unique_lock<std::mutex> lockIfGiven(std::mutex* mutex)
{
    return mutex != nullptr ? std::unique_lock<std::mutex>(*mutex) : std::unique_lock<std::mutex>();
}

template <typename Frame> std::unique_ptr<MessageBase> parseFrame(const unsigned char* record)
{
    const unsigned char* body = record + headerSize;
    auto frame = std::make_unique<Frame>(get<std::uint32_t>(body + TraceFormat::canIdOffset),
                                         body + TraceFormat::canDataOffset,
                                         body[TraceFormat::canLengthOffset]);
    frame->reservedByte1 = body[0];
    frame->reservedWord1 = get<std::uint32_t>(body + 1);
    frame->reservedByte2 = body[5];
    frame->reservedWord2 = get<std::uint32_t>(body + 6);
    return frame;
}

std::unique_ptr<MessageBase> parseTransport(const unsigned char* record, std::size_t length)
{
    const unsigned char* body = record + headerSize;
    auto message = std::make_unique<CANTransportTraceMessage>(
        std::vector<unsigned char>(body + TraceFormat::transportPayloadOffset, record + length),
        get<std::uint32_t>(body));
    message->reservedWord = get<std::uint32_t>(body + TraceFormat::transportWordOffset);
    return message;
}

std::unique_ptr<MessageBase> parseUnknown(msgid_t id, const unsigned char* record,
                                          std::size_t length)
{
    auto message = std::make_unique<MessageBase>(id);
    message->rawBytes.assign(record, record + length);
    return message;
}

} // namespace

TraceMessageBuffer::TraceMessageBuffer(int descriptor, std::mutex* mutex)
    : fd(descriptor),
      guard(mutex)
{
}

TraceMessageBuffer::~TraceMessageBuffer() = default;

int TraceMessageBuffer::read()
{
    const auto lock = lockIfGiven(guard);
    if (findRecord()) {
        return 0;
    }
    unsigned char chunk[readSize];
    const ssize_t count = ::read(fd, chunk, sizeof chunk);
    if (count == -1) {
        return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? 0 : -1;
    }
    // No complete record waits, so what is kept in front of the new bytes is less than one.
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(first));
    first = 0;
    bytes.insert(bytes.end(), chunk, chunk + count);
    return 0;
}

std::unique_ptr<MessageBase> TraceMessageBuffer::getNextMessage()
{
    const auto lock = lockIfGiven(guard);
    if (findRecord()) {
        auto message = parse(bytes.data() + first, found);
        consume(found);
        return message;
    }
    if (dropped > 0) {
        VelkException error;
        error << "dropped " + std::to_string(dropped) + " bytes that are no trace message";
        dropped = 0;
        throw error;
    }
    return nullptr;
}

bool TraceMessageBuffer::getNextFrame(std::uint32_t& canID, std::uint8_t& length,
                                      unsigned char* data)
{
    const auto lock = lockIfGiven(guard);
    if (!findRecord()) {
        return false;
    }
    const unsigned char* record = bytes.data() + first;
    const unsigned char* body = record + headerSize;
    if (!TraceFormat::isCanFrame(get<msgid_t>(record + TraceFormat::idOffset)) ||
        body[TraceFormat::canLengthOffset] > classicDataLength) {
        return false;
    }
    canID = get<std::uint32_t>(body + TraceFormat::canIdOffset);
    length = body[TraceFormat::canLengthOffset];
    const unsigned char* source = body + TraceFormat::canDataOffset;
    if (length == classicDataLength) { // in one piece
        std::copy_n(source, classicDataLength, data);
    } else {
        std::fill(std::copy_n(source, length, data), data + classicDataLength, '\0');
    }
    consume(found);
    return true;
}

bool TraceMessageBuffer::empty() const
{
    const auto lock = lockIfGiven(guard);
    return bytes.empty() && dropped == 0;
}

/// Moves on to the next complete record, dropping what cannot be one. What was found to be a complete
/// record behind another one is not judged again.
bool TraceMessageBuffer::findRecord()
{
    while (found == 0) {
        const Verdict verdict = judged ? Verdict::complete : inspect(first);
        if (verdict == Verdict::incomplete) {
            return false;
        }
        if (verdict == Verdict::complete) {
            const std::size_t end = first + recordLength(first);
            const Verdict next = inspect(end);
            if (next != Verdict::garbage || !swallowsARecord(end)) {
                found = end - first;
                nextJudged = next == Verdict::complete;
                return true;
            }
        }
        dropGarbage();
    }
    return true;
}

void TraceMessageBuffer::dropGarbage()
{
    const std::size_t garbage = nextCandidate() - first;
    dropped += garbage;
    consume(garbage);
}

TraceMessageBuffer::Verdict TraceMessageBuffer::inspect(std::size_t position) const
{
    const unsigned char* record = bytes.data() + position;
    const std::size_t available = bytes.size() - position;
    if (available < decisiveSize) {
        unsigned char start[2];
        TraceFormat::put(start, TraceFormat::marker);
        const bool fits = std::equal(start, start + std::min<std::size_t>(available, 2), record);
        return fits ? Verdict::incomplete : Verdict::garbage;
    }
    if (get<std::uint16_t>(record) != TraceFormat::marker) {
        return Verdict::garbage;
    }
    const auto id = get<msgid_t>(record + TraceFormat::idOffset);
    const std::size_t length = recordLength(position);
    if (!lengthFitsId(id, length)) {
        return Verdict::garbage;
    }
    if (available < length) {
        return Verdict::incomplete;
    }
    return bodyFitsId(id, record, length) ? Verdict::complete : Verdict::garbage;
}

/// A record whose writer was cut off takes the beginning of the next one for its own end. It shows by
/// what follows: no header stands where the next record should begin, but one stands inside whose
/// record goes on beyond. (A record that lies wholly inside is a message's own content.)
/// @param end of the record at `first`, where no header stands.
bool TraceMessageBuffer::swallowsARecord(std::size_t end) const
{
    // No sender writes a longer record, and the bound keeps nested headers from costing more and more.
    const std::size_t from = end - std::min(end - first - 1, longestSent);
    for (std::size_t position = from; position < end; ++position) {
        if (bytes[position] == markerStart && inspect(position) != Verdict::garbage &&
            (bytes.size() - position < decisiveSize || position + recordLength(position) > end)) {
            return true;
        }
    }
    return false;
}

/// The next position behind `first` where a record can stand, or the end of the bytes.
std::size_t TraceMessageBuffer::nextCandidate() const
{
    std::size_t position = first + 1;
    while (position < bytes.size() && inspect(position) == Verdict::garbage) {
        ++position;
    }
    return position;
}

std::size_t TraceMessageBuffer::recordLength(std::size_t position) const
{
    return get<std::uint32_t>(bytes.data() + position + TraceFormat::lengthOffset);
}

void TraceMessageBuffer::consume(std::size_t count)
{
    judged = found != 0 && nextJudged;
    found = 0;
    first += count;
    if (first == bytes.size()) {
        becomeEmpty();
    }
}

void TraceMessageBuffer::becomeEmpty()
{
    first = 0;
    bytes.clear();
    if (bytes.capacity() > idleCapacity) {
        bytes.shrink_to_fit();
    }
}

std::unique_ptr<MessageBase> TraceMessageBuffer::parse(const unsigned char* record,
                                                       std::size_t length) const
{
    const auto id = get<msgid_t>(record + TraceFormat::idOffset);
    std::unique_ptr<MessageBase> message;
    switch (id) {
    case CAN_TRACE_MSG:
        message = parseFrame<CANTraceMessage>(record);
        break;
    case CAN_EXT_TRACE_MSG:
        message = parseFrame<CANExtTraceMessage>(record);
        break;
    case CAN_ALT_TRACE_MSG:
        message = parseFrame<CANAltTraceMessage>(record);
        break;
    case CAN_TRANSPORT_TRACE_MSG:
        message = parseTransport(record, length);
        break;
    default:
        message = parseUnknown(id, record, length);
        break;
    }
    message->timeStamp = get<unsigned long long>(record + TraceFormat::timeStampOffset);
    return message;
}
