// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Descriptor.h"

#include <initializer_list>

/// Receives signals through a descriptor, instead of in a handler that could interrupt anything. Create it
/// before any thread, so that all threads inherit the blocked signals.
class Signals {
public:
    /// Takes the signals that end a program (SIGINT, SIGTERM, SIGHUP) and `others`. If the parent process
    /// ignores SIGHUP, as nohup does, it stays ignored. SIGINT does not: shells ignore it for background jobs.
    explicit Signals(std::initializer_list<int> others = {});

    /// @return the descriptor, which is readable while a signal waits.
    int descriptor() const { return source.get(); }
    /// @return the number of the next pending signal; 0 if there is none.
    int next() const;

private:
    Descriptor source;
};
