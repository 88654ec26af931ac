#pragma once

#include "bus/Descriptor.h"

/// Makes a poll(2) on another thread return.
class WakeUp {
public:
    /// @throws VelkException if no descriptor can be had.
    WakeUp();

    /// Readable from the first notify() to the next clear().
    int descriptor() const { return event.get(); }
    /// From any thread, and from a signal handler.
    void notify() const;
    void clear() const;

private:
    Descriptor event;
};
