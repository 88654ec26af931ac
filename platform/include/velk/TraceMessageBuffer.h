// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Export.h"
#include "velk/TraceMessage.h"
#include "velk/TraceRecord.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

/// Reads bytes from a descriptor and returns the trace messages that they hold.
///
/// The pipe may split records anywhere. Bytes that cannot be a record are dropped up to the next plausible
/// header. A request to send that announces more than 1 MiB is skipped by its announced length, so that its
/// content is not taken for records. The complete records that follow are returned first; then one
/// VelkException reports what was dropped.
///
/// Never holds more than one record (at most 1 MiB) and one read (at most 64 KiB). Without a mutex, only one
/// thread at a time may use it.
class VELK_EXPORT TraceMessageBuffer {
public:
    /// @param descriptor to read from; not owned and never closed.
    /// @param mutex locked by all operations if it is not null; not owned.
    TraceMessageBuffer(int descriptor, std::mutex* mutex);
    virtual ~TraceMessageBuffer();
    TraceMessageBuffer(const TraceMessageBuffer&) = delete;
    TraceMessageBuffer& operator=(const TraceMessageBuffer&) = delete;

    // Only read() uses the descriptor.

    /// Reads the available bytes with one read(2). While a complete record waits, returns 0 without a system
    /// call. Blocks on an empty pipe only if the descriptor does.
    /// @return -1 on failure, with errno set; 0 otherwise, also for an empty pipe and at the end of the
    /// input, which atEnd() distinguishes.
    int read();

    /// @return whether the last read(2) met the end of the input: no writer is left, or the peer has closed
    /// its socket. Complete records may still wait. An empty packet on a packet socket looks the same.
    bool atEnd() const;

    /// @return the next complete message, in the order of arrival; null if there is none. The caller
    /// owns it.
    /// @throws VelkException when all complete messages have been returned, if bytes were dropped.
    std::unique_ptr<MessageBase> getNextMessage();

    /// Takes the next complete record without creating an object. `record` points into the buffer: it is
    /// valid until the next read(), and only if the buffer has no mutex.
    /// @return whether there was a record; otherwise nothing is written.
    /// @throws VelkException as getNextMessage() does.
    bool getNextRecord(TraceRecord::View& record);

    static constexpr std::size_t classicDataLength = 8;
    /// Takes the next complete record if it is a CAN frame of at most 8 data bytes, without creating an
    /// object; leaves any other record for getNextMessage().
    /// @param data room for 8 bytes; those beyond `length` become 0.
    /// @return whether there was such a frame; otherwise nothing is written.
    bool getNextFrame(std::uint32_t& canID, std::uint8_t& length, unsigned char* data);

    /// @return whether everything that was read has been returned or reported.
    bool empty() const;

private:
    enum class Verdict { complete, incomplete, garbage, oversized };

    bool takeClassic(std::uint32_t& canID, unsigned char* data);
    bool findRecord();
    void dropGarbage();
    void startSkipping();
    void skip();
    void throwIfDropped();
    TraceRecord::View viewOfFound() const;
    Verdict inspect(std::size_t position) const;
    bool swallowsARecord(std::size_t end) const;
    std::size_t nextCandidate() const;
    std::size_t recordLength(std::size_t position) const;
    void consume(std::size_t count);
    void releaseMemory();

    const int fd;
    std::mutex* const guard;
    std::vector<unsigned char> bytes; ///< Bytes read; those before `first` are used up.
    std::size_t first = 0;
    std::size_t found = 0;   ///< Length of the complete record at `first`; 0 if none is known.
    bool judged = false;     ///< The bytes at `first` are known to be a complete record.
    bool nextJudged = false; ///< The same for the bytes after the found record.
    bool ended = false;      ///< The last read(2) met the end of the input.
    std::size_t dropped = 0; ///< Bytes dropped and not yet reported.
    std::size_t toSkip = 0;  ///< Bytes of an oversized request that remain to be skipped.
    std::size_t skipped = 0; ///< Announced length of oversized requests, not yet reported.
};
