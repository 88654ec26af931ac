#pragma once

#include <cxxabi.h>
#include <pthread.h>

/// What unwinds the stack of a thread that Thread::stop() ends. Code that catches everything catches
/// this first and throws it again.
using ThreadCancellation = abi::__forced_unwind;

/// Gives the calling thread a cancel state while it lives.
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
/// Stands around a call that may block for long, or around all frames of a burst. Everything outside
/// of such a scope runs to its end: a stop that comes meanwhile waits for the next one. When a stop
/// ends the thread, the stack is unwound, so destructors run and scoped locks are released.
using CancellableScope = CancelStateScope<PTHREAD_CANCEL_ENABLE>;

/// The other way round, for what a stop must not cut although it may happen in such a scope.
using UncancellableScope = CancelStateScope<PTHREAD_CANCEL_DISABLE>;
