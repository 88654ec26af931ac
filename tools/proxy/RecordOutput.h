#pragma once

#include <cstddef>
#include <deque>
#include <vector>

#include <linux/can.h>
#include <sys/types.h>

/// Frames on their way to a descriptor, as serialised trace messages. The descriptor is not owned,
/// and the flags of its open file stay as they are: another process may share it.
class RecordOutput {
public:
    /// As many records as PIPE_BUF holds: a pipe that is ready takes them without blocking.
    static constexpr int mostFrames = 105;

    explicit RecordOutput(int descriptor);

    bool isEmpty() const { return chunks.empty(); }
    /// At most `mostFrames`, to an empty output.
    void add(const can_frame& frame);
    /// Writes what the descriptor, which is ready, takes without blocking.
    /// @return 0, or the errno value that tells why it takes no more for good.
    int write();

private:
    ssize_t writeFirst() const;

    const int fd;
    const int socketType;                          ///< -1: no socket.
    std::deque<std::vector<unsigned char>> chunks; ///< Each for one write; never empty ones.
    std::size_t written = 0;                       ///< Bytes of the first chunk.
};
