// SPDX-License-Identifier: MIT
#include "velk/TraceMessageBuffer.h"
#include "velk/VelkException.h"

#include "Input.h"

#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

int ends[2];
[[maybe_unused]] const int made = ::pipe2(ends, O_NONBLOCK);

/// A buffer that reads the pipe, and the fate of each byte.
struct Account {
    TraceMessageBuffer buffer{ends[0], nullptr};
    Bytes all{};
    std::size_t found = 0; ///< Where the last message ends, at the earliest.
    std::size_t used = 0;  ///< Bytes given out, dropped or to be skipped.

    void put(const Bytes& bytes)
    {
        const auto written = static_cast<std::size_t>(::write(ends[1], bytes.data(), bytes.size()));
        require(written == bytes.size(), "the pipe takes what is put in");
        all.insert(all.end(), bytes.begin(), bytes.end());
    }

    bool takeOne()
    {
        require(buffer.read() == 0, "reading succeeds");
        try {
            const auto message = buffer.getNextMessage();
            if (message) {
                Bytes record;
                message->createByteArray(record, true, false);
                settle(record);
            }
            return message != nullptr;
        } catch (const VelkException& exception) {
            used += countOf(exception, "dropped ") + countOf(exception, "skipped ");
            found = used; // what has been dropped or skipped is no message any more
            require(buffer.getNextMessage() == nullptr, "complete messages come before the report");
            return false;
        }
    }

    static std::size_t countOf(const VelkException& exception, const std::string& word)
    {
        const std::size_t at = exception.str().find(word);
        return at == std::string::npos ? 0 : std::stoul(exception.str().substr(at + word.size()));
    }

    void settle(const Bytes& record)
    {
        const auto at = std::search(all.begin() + static_cast<std::ptrdiff_t>(found), all.end(),
                                    record.begin(), record.end());
        require(at != all.end(), "each message is part of the input, after the previous one");
        found = static_cast<std::size_t>(at - all.begin()) + record.size();
        used += record.size();
    }

    /// Takes everything that can be had.
    /// @return the bytes that what is held or skipped still waits for; 0 if it waits for nothing.
    std::size_t takeAll()
    {
        int waiting = 0;
        do {
            ioctl(ends[0], FIONREAD, &waiting);
        } while (takeOne() || waiting > 0);
        if (used > all.size()) {
            require(buffer.empty(), "nothing is held of what is skipped");
            return used - all.size();
        }
        require(found <= used, "each byte is given out, dropped, skipped or held");
        const unsigned char* held = all.data() + used;
        const std::size_t size = all.size() - used;
        require(size < 2 || (held[0] == 0xA3 && held[1] == 0xC5), "a marker is held");
        if (size < 8) {
            return size == 0 ? 0 : 8 - size;
        }
        std::uint32_t length = 0;
        std::memcpy(&length, held + 4, sizeof length);
        require(size < length && length <= 1U << 20, "less than one record is held");
        return length - size;
    }
};

} // namespace

/// Eight bytes, used in turn for the pieces of the stream: the length of the piece (0: the rest), and in the
/// top bit whether only one message is taken after it. The stream follows.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input{data, std::min<std::size_t>(size, 50000)};
    Bytes cuts = input.bytes(8);
    cuts.resize(8);
    Account account;
    for (std::size_t piece = 0; input.left > 0; ++piece) {
        const unsigned int length = cuts[piece % 8] & 0x7FU;
        account.put(input.bytes(length == 0 ? input.left : length));
        length != cuts[piece % 8] ? account.takeOne() : account.takeAll() != 0;
    }
    while (const std::size_t wanted = account.takeAll()) {
        if (wanted > (cuts[7] != 0 ? 8192U : 1U << 21)) {
            return 0; // few inputs wait for a megabyte: it takes as long as a hundred others
        }
        account.put(Bytes(std::min<std::size_t>(wanted, 60000)));
    }
    Bytes record;
    CANExtTraceMessage(0x123, cuts.data(), 8).createByteArray(record, true, false);
    account.put(record);
    require(account.takeAll() == 0 && account.found == account.all.size(),
            "a fresh record gets through");
    return 0;
}
