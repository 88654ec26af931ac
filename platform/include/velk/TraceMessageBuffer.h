#pragma once

#include "velk/Export.h"
#include "velk/TraceMessage.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

/// Reads bytes from a descriptor and gives out the trace messages that they hold.
///
/// Records may be cut anywhere by the pipe. Bytes that cannot be a record are dropped up to the
/// next plausible header; the complete records behind them are given out first, and then one
/// VelkException tells how many bytes were dropped.
///
/// Never holds more than one record (at most 1 MiB) and one read (at most 64 KiB). Without a mutex
/// one thread at a time may use it.
class VELK_EXPORT TraceMessageBuffer {
public:
    /// @param descriptor to read from; not owned and never closed.
    /// @param mutex locked by all operations if it is not null; not owned.
    TraceMessageBuffer(int descriptor, std::mutex* mutex);
    virtual ~TraceMessageBuffer();
    TraceMessageBuffer(const TraceMessageBuffer&) = delete;
    TraceMessageBuffer& operator=(const TraceMessageBuffer&) = delete;

    /// Takes the bytes that are readable now, with one read(2); with a complete record waiting,
    /// returns 0 without a system call. Blocks on an empty pipe only if the descriptor does.
    /// @return -1 on failure, with errno set. An empty pipe and the end of the input are 0.
    int read();

    /// The next complete message, in the order of arrival; null if there is none. The caller owns
    /// it. Does not touch the descriptor.
    /// @throws VelkException once all complete messages are given out, if bytes were dropped.
    std::unique_ptr<MessageBase> getNextMessage();

    static constexpr std::size_t classicDataLength = 8;
    /// Takes the next complete message if it is a CAN frame of at most 8 data bytes, without making
    /// an object of it; anything else stays for getNextMessage(). Does not touch the descriptor.
    /// @param data room for 8 bytes; those beyond `length` become 0.
    /// @return whether there was such a frame; otherwise nothing is written.
    bool getNextFrame(std::uint32_t& canID, std::uint8_t& length, unsigned char* data);

    /// @return whether all that was read has been given out or told of. Does not touch the descriptor.
    bool empty() const;

private:
    enum class Verdict { complete, incomplete, garbage };

    bool findRecord();
    void dropGarbage();
    Verdict inspect(std::size_t position) const;
    bool swallowsARecord(std::size_t end) const;
    std::size_t nextCandidate() const;
    std::size_t recordLength(std::size_t position) const;
    void consume(std::size_t count);
    void becomeEmpty();
    std::unique_ptr<MessageBase> parse(const unsigned char* record, std::size_t length) const;

    const int fd;
    std::mutex* const guard;
    std::vector<unsigned char> bytes; ///< What was read; everything before `first` is used up.
    std::size_t first = 0;
    std::size_t found = 0;   ///< Length of the complete record at `first`; 0 if none is known.
    bool judged = false;     ///< The bytes at `first` have been found to be a complete record.
    bool nextJudged = false; ///< The same of those behind the record that was found.
    std::size_t dropped = 0; ///< Bytes dropped and not yet reported.
};
