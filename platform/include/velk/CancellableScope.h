#pragma once

#include <pthread.h>

/// While it lives, Thread::stop() may end the calling thread at a cancellation point.
///
/// Stands around a call that may block for long, or around all frames of a burst. Everything outside
/// of such a scope runs to its end: a stop that comes meanwhile waits for the next one. When a stop
/// ends the thread, the stack is unwound, so destructors run and scoped locks are released.
class CancellableScope {
public:
    CancellableScope() { pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &previous); }
    ~CancellableScope() { pthread_setcancelstate(previous, nullptr); }
    CancellableScope(const CancellableScope&) = delete;
    CancellableScope& operator=(const CancellableScope&) = delete;

private:
    int previous = PTHREAD_CANCEL_DISABLE;
};

/// The other way round, for what a stop must not cut although it may happen in such a scope.
class UncancellableScope {
public:
    UncancellableScope() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous); }
    ~UncancellableScope() { pthread_setcancelstate(previous, nullptr); }
    UncancellableScope(const UncancellableScope&) = delete;
    UncancellableScope& operator=(const UncancellableScope&) = delete;

private:
    int previous = PTHREAD_CANCEL_DISABLE;
};
