// SPDX-License-Identifier: MIT
#include "velk/Pipe.h"

#include "velk/Descriptor.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

bool createPipe(int (&ends)[2])
{
    int created[2];
    if (::pipe2(created, O_CLOEXEC) == -1) {
        return false;
    }
    Descriptor reading = aboveStandardStreams(Descriptor(created[0]));
    Descriptor writing = aboveStandardStreams(Descriptor(created[1]));
    if (reading.get() == -1 || writing.get() == -1) {
        const int error = errno;
        reading.reset();
        writing.reset();
        errno = error;
        return false;
    }
    ends[0] = reading.release();
    ends[1] = writing.release();
    return true;
}

void closePipe(const int (&ends)[2])
{
    ::close(ends[0]);
    ::close(ends[1]);
}

bool setNonBlocking(int descriptor)
{
    const int flags = ::fcntl(descriptor, F_GETFL);
    return ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) != -1;
}
