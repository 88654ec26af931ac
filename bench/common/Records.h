// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CANTransportFrame.h"
#include "velk/TraceMessage.h"
#include "velk/TraceRecord.h"

#include "common/Program.h"

#include <cstddef>
#include <vector>

/// The records of the benchmarks, their sizes, and the pipes for them.
namespace Records {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t longestMessage = CANTransportFrame::maxMessageLength;
/// Size of the record of a frame.
constexpr std::size_t frameSize = TraceRecord::frameSize(CANTransportFrame::dataBytes);
/// Offset of the data bytes in it.
constexpr std::size_t frameData = TraceRecord::headerSize + TraceRecord::frameDataOffset;
/// Bytes before the message, in the record of a request or of a delivered message.
constexpr std::size_t messageHeader = TraceRecord::transportSize(0);

/// @return how many frames carry a message of `size` bytes.
constexpr std::size_t frameCount(std::size_t size)
{
    return CANTransportFrame::frameCountOf(static_cast<unsigned int>(size));
}

/// @return the record of the message.
inline Bytes bytesOf(const MessageBase& message)
{
    Bytes bytes;
    message.createByteArray(bytes, true, false);
    return bytes;
}

/// @return the record of a request for a message of `size` bytes.
inline Bytes request(std::size_t size)
{
    return bytesOf(CANTransportTraceMessage(Bytes(size, 0x55)));
}

/// @return the record of a frame with these first two bytes; all other data bytes are 0.
inline Bytes frame(CANTransportFrame::framekind_t kind, std::size_t lowNibble,
                   std::size_t second = 0)
{
    const unsigned char data[CANTransportFrame::dataBytes] = {
        CANTransportFrame::firstByte(kind, static_cast<unsigned int>(lowNibble)),
        static_cast<unsigned char>(second)};
    return bytesOf(CANExtTraceMessage(0x456, data, sizeof data));
}

inline const Bytes ready =
    frame(CANTransportFrame::CTP_FLOW_CONTROL, CANTransportFrame::CTP_FC_READY_TO_RECEIVE);
inline const Bytes acknowledge =
    frame(CANTransportFrame::CTP_FLOW_CONTROL, CANTransportFrame::CTP_FC_ACKNOWLEDGE);

/// @return the records of all frames of a message.
inline Bytes frames(std::size_t size)
{
    using namespace CANTransportFrame;
    if (size <= singleFrameBytes) {
        return frame(CTP_SINGLE_FRAME, size);
    }
    Bytes all = frame(CTP_FIRST_FRAME, size >> 8U, size);
    for (std::size_t number = 0; number + 1 < frameCount(size); ++number) {
        const Bytes next = frame(CTP_CONSECUTIVE_FRAME, number % sequenceNumbers);
        all.insert(all.end(), next.begin(), next.end());
    }
    return all;
}

/// Writes the bytes in one write.
inline void put(int descriptor, const unsigned char* bytes, std::size_t size)
{
    if (::write(descriptor, bytes, size) != static_cast<ssize_t>(size)) {
        Program::fail("a pipe does not take a record");
    }
}

inline void put(int descriptor, const Bytes& records)
{
    put(descriptor, records.data(), records.size());
}

/// Reads exactly `size` bytes in one read.
inline void take(int descriptor, std::size_t size)
{
    unsigned char room[65536];
    if (::read(descriptor, room, sizeof room) != static_cast<ssize_t>(size)) {
        Program::fail("an endpoint has not sent the expected bytes");
    }
}

/// Stays open until the program ends.
struct Pipe {
    int ends[2] = {-1, -1};

    Pipe()
    {
        if (::pipe(ends) == -1) {
            Program::fail("cannot create a pipe");
        }
    }
};

} // namespace Records
