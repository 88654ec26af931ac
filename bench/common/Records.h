#pragma once

#include "velk/TraceMessage.h"

#include "common/Program.h"

#include <cstddef>
#include <vector>

/// The records that the benchmarks hand in, their sizes, and the pipes for them.
namespace Records {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t longestMessage = 4095;
constexpr std::size_t frameSize = 39;     ///< Of a frame's record, from header to last data byte.
constexpr std::size_t frameData = 31;     ///< Where its 8 data bytes begin.
constexpr std::size_t messageHeader = 24; ///< Of a request's or delivered message's record.

constexpr std::size_t frameCount(std::size_t size) { return size <= 7 ? 1 : 1 + size / 7; }

inline Bytes bytesOf(const MessageBase& message)
{
    Bytes bytes;
    message.createByteArray(bytes, true, false);
    return bytes;
}

inline Bytes request(std::size_t size)
{
    return bytesOf(CANTransportTraceMessage(Bytes(size, 0x55)));
}

/// One frame whose first data bytes are these; the others are 0.
inline Bytes frame(std::size_t first, std::size_t second = 0)
{
    const unsigned char data[8] = {static_cast<unsigned char>(first),
                                   static_cast<unsigned char>(second)};
    return bytesOf(CANExtTraceMessage(0x456, data, sizeof data));
}

inline const Bytes ready = frame(0x31);
inline const Bytes acknowledge = frame(0x33);

/// All frames of a message, one record behind the other.
inline Bytes frames(std::size_t size)
{
    if (size <= 7) {
        return frame(size);
    }
    Bytes all = frame(0x10U | (size >> 8U), size);
    for (std::size_t number = 0; number + 1 < frameCount(size); ++number) {
        const Bytes next = frame(0x20U | (number % 16));
        all.insert(all.end(), next.begin(), next.end());
    }
    return all;
}

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

inline void take(int descriptor, std::size_t size)
{
    unsigned char room[65536];
    if (::read(descriptor, room, sizeof room) != static_cast<ssize_t>(size)) {
        Program::fail("an endpoint has not sent what it should");
    }
}

/// Stays open until the program ends.
struct Pipe {
    int ends[2] = {-1, -1};

    Pipe()
    {
        if (::pipe(ends) == -1) {
            Program::fail("no pipe to be had");
        }
    }
};

} // namespace Records
