#include "bus/WakeUp.h"

#include "velk/VelkException.h"

#include <cerrno>
#include <cstring>

#include <sys/eventfd.h>

WakeUp::WakeUp() : event(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    if (event.get() == -1) {
        const int error = errno;
        VelkException exception;
        exception << "no event descriptor: " << std::strerror(error);
        throw exception;
    }
}

void WakeUp::notify() const
{
    const int before = errno; // of the code that a signal handler has interrupted
    eventfd_write(event.get(), 1);
    errno = before;
}

void WakeUp::clear() const
{
    eventfd_t count = 0;
    eventfd_read(event.get(), &count);
}
