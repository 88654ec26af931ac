// SPDX-License-Identifier: MIT
#pragma once

#include "common/Signals.h"

/// The signals that end a program. They interrupt nothing, but show in the waits below. A second one has no effect:
/// timeout(1) sends two.
class EndSignals {
public:
    /// Waits until the input is readable. @return false if the program has to end: a signal has arrived, or
    /// standard output has lost its reader.
    bool awaitInput(int descriptor);
    /// Waits until the output is writable; after a signal at most a second. @return whether it is.
    bool awaitOutput(int descriptor);
    bool arrived() const { return come; }

private:
    const Signals signals;
    bool come = false;
};
