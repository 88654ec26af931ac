#pragma once

#include "velk/Descriptor.h"

/// Takes SIGINT, SIGTERM and SIGUSR1 out of a descriptor; from its creation on they interrupt nothing.
class Signals {
public:
    Signals();

    /// Readable while a signal waits.
    int descriptor() const { return source.get(); }
    /// The number of the one that waits; 0 if there is none.
    int next() const;

private:
    Descriptor source;
};
