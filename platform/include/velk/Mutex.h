#pragma once

#include "velk/Export.h"

#include <pthread.h>

/// A mutex with the default attributes of POSIX: not recursive, not shared between processes.
///
/// Satisfies BasicLockable, so `std::lock_guard<Mutex>` scopes it. The results of the POSIX calls
/// are ignored: with default attributes a correct program gets none but success.
class VELK_EXPORT Mutex {
public:
    Mutex();
    virtual ~Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Blocks until the calling thread owns the mutex. Locking it twice on one thread deadlocks.
    void lock();
    /// Gives the mutex back; the calling thread has to own it.
    void unlock();

private:
    pthread_mutex_t mutex;
};
