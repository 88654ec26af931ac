// SPDX-License-Identifier: MIT
#include "velk/TraceMessageBuffer.h"

#include "velk/VelkException.h"

#include "TraceParser.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include <unistd.h>

using TraceRecord::get;

namespace {

constexpr std::size_t readSize = 65536;
constexpr std::size_t idleCapacity = 512; ///< A larger buffer is freed while nothing waits.
constexpr std::size_t decisiveSize = 8;   ///< Marker, id and length: enough to judge a header.
/// Size of the record of the longest message that the transport carries.
constexpr std::size_t longestSent =
    TraceRecord::transportSize(CANTransportTraceMessage::maxPayload);

// Marker, id and length of the record of a frame with 8 data bytes, as one number.
constexpr std::uint8_t classicLength = TraceMessageBuffer::classicDataLength;
constexpr std::size_t classicSize = TraceRecord::frameSize(classicLength);
constexpr std::uint64_t classicStart =
    TraceRecord::marker | std::uint64_t{CAN_EXT_TRACE_MSG} << 8 * TraceRecord::idOffset |
    std::uint64_t{classicSize} << 8 * TraceRecord::lengthOffset;

/// @return whether the record of such a frame starts there; at least `classicSize` bytes have to follow.
bool isClassic(const unsigned char* record)
{
    return get<std::uint64_t>(record) == classicStart &&
           record[TraceRecord::headerSize + TraceRecord::frameLengthOffset] == classicLength;
}

bool lengthFitsId(msgid_t id, std::size_t length)
{
    if (TraceRecord::isFrame(id)) {
        return length >= TraceRecord::frameSize(0) &&
               length <= TraceRecord::frameSize(CANTraceMessageBase::maxDataLength);
    }
    const bool transport = id == CAN_TRANSPORT_TRACE_MSG;
    return length >= (transport ? TraceRecord::transportSize(0) : TraceRecord::headerSize) &&
           length <= TraceRecord::maxSize;
}

bool bodyFitsId(const TraceRecord::View& record)
{
    return !record.isFrame() || record.size == TraceRecord::frameSize(record.frame().length);
}

std::unique_lock<std::mutex> lockIfGiven(std::mutex* mutex)
{
    return mutex != nullptr ? std::unique_lock<std::mutex>(*mutex) : std::unique_lock<std::mutex>();
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
    ended = count == 0;
    if (count <= 0) {
        const int error = errno;
        releaseMemory();
        errno = error;
        const bool nothing = ended || error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
        return nothing ? 0 : -1;
    }
    // No complete record waits, so the bytes that are kept are less than one record.
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(first));
    first = 0;
    bytes.insert(bytes.end(), chunk, chunk + count);
    if (toSkip > 0) {
        skip();
    }
    return 0;
}

bool TraceMessageBuffer::atEnd() const
{
    const auto lock = lockIfGiven(guard);
    return ended;
}

std::unique_ptr<MessageBase> TraceMessageBuffer::getNextMessage()
{
    const auto lock = lockIfGiven(guard);
    if (findRecord()) {
        auto message = parseRecord(viewOfFound());
        consume(found);
        return message;
    }
    throwIfDropped();
    return nullptr;
}

bool TraceMessageBuffer::getNextRecord(TraceRecord::View& record)
{
    const auto lock = lockIfGiven(guard);
    if (findRecord()) {
        record = viewOfFound();
        consume(found);
        return true;
    }
    throwIfDropped();
    return false;
}

bool TraceMessageBuffer::getNextFrame(std::uint32_t& canID, std::uint8_t& length,
                                      unsigned char* data)
{
    const auto lock = lockIfGiven(guard);
    if (takeClassic(canID, data)) {
        length = classicLength;
        return true;
    }
    if (!findRecord()) {
        return false;
    }
    const TraceRecord::View record = viewOfFound();
    if (!record.isFrame()) {
        return false;
    }
    const TraceRecord::FrameBody frame = record.frame();
    if (frame.length > classicDataLength) {
        return false;
    }
    canID = frame.canID;
    length = frame.length;
    std::fill(std::copy_n(frame.data, length, data), data + classicDataLength, '\0');
    consume(found);
    return true;
}

/// The short way for a frame of 8 data bytes among others: the record was judged with the one before it, and
/// the next record is one of the same kind.
bool TraceMessageBuffer::takeClassic(std::uint32_t& canID, unsigned char* data)
{
    const unsigned char* const record = bytes.data() + first;
    if (found != 0 || !judged || bytes.size() - first < 2 * classicSize || !isClassic(record) ||
        !isClassic(record + classicSize)) {
        return false;
    }
    const TraceRecord::FrameBody frame = TraceRecord::decodeFrame(record + TraceRecord::headerSize);
    canID = frame.canID;
    std::copy_n(frame.data, classicLength, data); // of constant size: faster
    first += classicSize;
    return true;
}

bool TraceMessageBuffer::empty() const
{
    const auto lock = lockIfGiven(guard);
    return bytes.empty() && dropped == 0 && skipped == 0;
}

TraceRecord::View TraceMessageBuffer::viewOfFound() const
{
    const unsigned char* record = bytes.data() + first;
    return {get<msgid_t>(record + TraceRecord::idOffset), record, found};
}

/// Advances to the next complete record and drops bytes that cannot be a record. A record that was already
/// judged complete together with the one before it is not judged again.
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
        if (verdict == Verdict::oversized) {
            startSkipping();
        } else {
            dropGarbage();
        }
    }
    return true;
}

void TraceMessageBuffer::startSkipping()
{
    toSkip = recordLength(first);
    skipped += toSkip;
    skip();
}

/// Skips the bytes of an oversized request that have arrived.
void TraceMessageBuffer::skip()
{
    const std::size_t count = std::min(toSkip, bytes.size() - first);
    toSkip -= count;
    consume(count);
}

void TraceMessageBuffer::dropGarbage()
{
    const std::size_t garbage = nextCandidate() - first;
    dropped += garbage;
    consume(garbage);
}

void TraceMessageBuffer::throwIfDropped()
{
    std::string text;
    if (const std::size_t count = std::exchange(dropped, 0); count > 0) {
        text = "dropped " + std::to_string(count) + " bytes that are no trace message";
    }
    if (const std::size_t count = std::exchange(skipped, 0); count > 0) {
        text += (text.empty() ? "" : ", ") + std::string("skipped ") + std::to_string(count) +
                " bytes of requests that exceed " + std::to_string(TraceRecord::maxSize);
    }
    if (!text.empty()) {
        throwVelkException(text);
    }
}

TraceMessageBuffer::Verdict TraceMessageBuffer::inspect(std::size_t position) const
{
    const unsigned char* record = bytes.data() + position;
    const std::size_t available = bytes.size() - position;
    if (available >= classicSize && isClassic(record)) { // nearly all are
        return Verdict::complete;
    }
    if (available < decisiveSize) {
        unsigned char start[2];
        TraceRecord::put(start, TraceRecord::marker);
        const bool fits = std::equal(start, start + std::min<std::size_t>(available, 2), record);
        return fits ? Verdict::incomplete : Verdict::garbage;
    }
    if (get<std::uint16_t>(record) != TraceRecord::marker) {
        return Verdict::garbage;
    }
    const auto id = get<msgid_t>(record + TraceRecord::idOffset);
    const std::size_t length = recordLength(position);
    if (!lengthFitsId(id, length)) {
        const bool request = id == CAN_TRANSPORT_TRACE_MSG && length > TraceRecord::maxSize;
        return request ? Verdict::oversized : Verdict::garbage;
    }
    if (available < length) {
        return Verdict::incomplete;
    }
    return bodyFitsId({id, record, length}) ? Verdict::complete : Verdict::garbage;
}

/// Detects a record whose writer was cut off, so that the start of the next record fills it up. Its sign:
/// there is no header where the next record should start, but there is one inside, and the record of that
/// header extends beyond the end. (A record that lies completely inside is content of a message.)
/// @param end end of the record at `first`, where there is no header.
bool TraceMessageBuffer::swallowsARecord(std::size_t end) const
{
    // No sender writes a longer record, and the limit bounds the cost of nested headers.
    const std::size_t from = end - std::min(end - first - 1, longestSent);
    for (std::size_t position = from; position < end; ++position) {
        if (bytes[position] != TraceRecord::firstByte) {
            continue;
        }
        const Verdict verdict = inspect(position);
        if ((verdict == Verdict::complete || verdict == Verdict::incomplete) &&
            (bytes.size() - position < decisiveSize || position + recordLength(position) > end)) {
            return true;
        }
    }
    return false;
}

/// @return the next position after `first` where a record can start, or the end of the bytes.
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
    return get<std::uint32_t>(bytes.data() + position + TraceRecord::lengthOffset);
}

void TraceMessageBuffer::consume(std::size_t count)
{
    judged = found != 0 && nextJudged;
    found = 0;
    first += count;
    if (first == bytes.size()) {
        first = 0;
        bytes.clear(); // keeps the memory: a view of the last record stays valid
    }
}

/// Called when no more input waits. Views of earlier records become invalid.
void TraceMessageBuffer::releaseMemory()
{
    if (bytes.empty() && bytes.capacity() > idleCapacity) {
        bytes.shrink_to_fit();
    }
}
