#pragma once

#include "velk/Descriptor.h"

/// Receives SIGINT, SIGTERM and SIGUSR1 through a descriptor. While it exists, they interrupt nothing.
class Signals {
public:
    Signals();

    /// @return the descriptor, which is readable while a signal waits.
    int descriptor() const { return source.get(); }
    /// @return the number of the next pending signal; 0 if there is none.
    int next() const;

private:
    Descriptor source;
};
