// SPDX-License-Identifier: MIT
#pragma once

#include <cxxabi.h>
#include <pthread.h>

/// The exception that unwinds the stack of a thread when Thread::stop() ends it. Code with `catch (...)`
/// must catch this first and rethrow it.
using ThreadCancellation = abi::__forced_unwind;

/// Sets the cancel state of the calling thread while it lives.
template <int state> class CancelStateScope {
public:
    CancelStateScope() { pthread_setcancelstate(state, &previous); }
    ~CancelStateScope() { pthread_setcancelstate(previous, nullptr); }
    CancelStateScope(const CancelStateScope&) = delete;
    CancelStateScope& operator=(const CancelStateScope&) = delete;

private:
    int previous = PTHREAD_CANCEL_DISABLE;
};

/// While it lives, Thread::stop() may end the calling thread at a cancellation point.
///
/// Encloses a call that may block for long, or all frames of a burst. Code outside of such a scope is never
/// interrupted: a stop waits until the thread enters the next scope. When a stop ends the thread, the stack
/// is unwound, so destructors run and scoped locks are released.
using CancellableScope = CancelStateScope<PTHREAD_CANCEL_ENABLE>;

/// The opposite: protects code inside a CancellableScope that a stop must not interrupt.
using UncancellableScope = CancelStateScope<PTHREAD_CANCEL_DISABLE>;
