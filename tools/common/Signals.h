#pragma once

#include "velk/Descriptor.h"

#include <initializer_list>

/// Receives signals through a descriptor. From its construction on, they interrupt nothing. Create it before
/// any thread, so that all threads inherit the blocked signals.
class Signals {
public:
    /// Receives SIGHUP, SIGINT and SIGTERM, and `others`. @throws std::system_error
    explicit Signals(std::initializer_list<int> others = {});

    /// @return the descriptor, which is readable while a signal waits.
    int descriptor() const { return source.get(); }
    /// @return the number of the next pending signal; 0 if there is none.
    int next() const;

private:
    Descriptor source;
};
