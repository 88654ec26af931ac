// SPDX-License-Identifier: MIT
#pragma once

#include "velk/TraceRecord.h"

#include <climits>
#include <cstddef>
#include <deque>
#include <vector>

#include <linux/can.h>
#include <sys/types.h>

/// Writes frames to a descriptor, as serialised trace messages. The descriptor is not owned. The flags of the
/// open file do not change, because another process may share it.
class RecordOutput {
public:
    /// As many records as fit into PIPE_BUF: a pipe that is ready takes them without blocking.
    static constexpr int mostFrames = PIPE_BUF / TraceRecord::frameSize(CAN_MAX_DLEN);

    explicit RecordOutput(int descriptor);

    /// @return whether all frames have been written.
    bool isEmpty() const { return chunks.empty(); }
    /// Adds a frame. Do not add more than `mostFrames` before all are written.
    void add(const can_frame& frame);
    /// Writes as much as the descriptor takes without blocking. The descriptor must be ready.
    /// @return 0, or the errno value if it will never take more.
    int write();

private:
    ssize_t writeFirst() const;

    const int fd;
    const int socketType;                          ///< -1 if the descriptor is not a socket.
    std::deque<std::vector<unsigned char>> chunks; ///< One write each; none is empty.
    std::size_t written = 0;                       ///< Bytes of the first chunk that were written.
};
