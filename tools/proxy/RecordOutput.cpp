// SPDX-License-Identifier: MIT
#include "proxy/RecordOutput.h"

#include "common/FrameRecord.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include <sys/socket.h>
#include <unistd.h>

namespace {

int typeOfSocket(int descriptor)
{
    int type = -1;
    socklen_t size = sizeof type;
    return getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0 ? type : -1;
}

} // namespace

RecordOutput::RecordOutput(int descriptor) : fd(descriptor), socketType(typeOfSocket(descriptor)) {}

void RecordOutput::add(const can_frame& frame)
{
    const bool ownPacket = socketType != -1 && socketType != SOCK_STREAM;
    if (chunks.empty() || ownPacket) {
        chunks.emplace_back();
    }
    const std::uint8_t length = std::min<std::uint8_t>(frame.can_dlc, CAN_MAX_DLEN);
    FrameRecord::append(chunks.back(), frame.can_id, frame.data, length);
}

int RecordOutput::write()
{
    while (!chunks.empty()) {
        const ssize_t count = writeFirst();
        if (count == -1) {
            return errno == EAGAIN || errno == EINTR ? 0 : errno;
        }
        written += static_cast<std::size_t>(count);
        if (written < chunks.front().size()) {
            return 0;
        }
        written = 0;
        chunks.pop_front();
    }
    return 0;
}

ssize_t RecordOutput::writeFirst() const
{
    const unsigned char* const rest = chunks.front().data() + written;
    const std::size_t size = chunks.front().size() - written;
    return socketType != -1 ? ::send(fd, rest, size, MSG_DONTWAIT | MSG_NOSIGNAL)
                            : ::write(fd, rest, size);
}
