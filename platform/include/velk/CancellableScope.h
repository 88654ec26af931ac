#pragma once

#include <pthread.h>

/// While it lives, Thread::stop() may end the calling thread at a cancellation point.
///
/// Stands around the calls that may block for long and around nothing else: everything outside of
/// such a scope runs to its end. A stop that comes meanwhile waits for the next scope. When a stop
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
