// SPDX-License-Identifier: MIT
#pragma once

#include "velk/CancellableScope.h"
#include "velk/Descriptor.h"

#include "Failure.h"

#include <cerrno>

#include <sys/eventfd.h>

/// A descriptor that is readable from set() to clear(). Neither is a cancellation point: both are called
/// in the middle of changes that must complete.
class Wakeup {
public:
    Wakeup() : event(aboveStandardStreams(Descriptor(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))))
    {
        if (event.get() == -1) {
            throwErrno("cannot create an event descriptor", errno);
        }
    }

    int descriptor() const { return event.get(); }
    void set() const
    {
        const UncancellableScope whole;
        eventfd_write(event.get(), 1);
    }
    void clear() const
    {
        const UncancellableScope whole;
        eventfd_t count = 0;
        eventfd_read(event.get(), &count);
    }

private:
    const Descriptor event;
};
