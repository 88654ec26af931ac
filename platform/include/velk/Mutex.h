// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Export.h"
#include "velk/ThreadSafety.h"

#include <pthread.h>

/// A mutex with the default attributes of POSIX: not recursive, not shared between processes.
///
/// The results of the POSIX calls are ignored: with default attributes they always succeed in a correct
/// program.
class VELK_EXPORT VELK_CAPABILITY("mutex") Mutex {
public:
    Mutex();
    virtual ~Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Blocks until the calling thread owns the mutex. Locking it twice on one thread deadlocks.
    void lock() VELK_ACQUIRE();
    /// Releases the mutex, which the calling thread has to own.
    void unlock() VELK_RELEASE();

private:
    pthread_mutex_t mutex;
};

/// Holds a Mutex while it lives.
class VELK_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) VELK_ACQUIRE(mutex) : owned(mutex) { owned.lock(); }
    ~MutexLock() VELK_RELEASE() { owned.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& owned;
};
