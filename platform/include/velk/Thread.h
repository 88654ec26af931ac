#pragma once

#include "velk/Export.h"

#include <atomic>
#include <cstdint>
#include <mutex>

#include <pthread.h>

/// Base of a class whose `threadCode()` runs on a thread of its own.
///
/// The thread runs with SIGPIPE blocked, so that a write to a pipe whose reader has gone fails with
/// EPIPE. No other signal and no disposition is touched. Cancellation is disabled but inside a
/// CancellableScope.
///
/// An exception that leaves `threadCode()` does not end the thread: its text goes to `std::cerr` as
/// an "[ERROR] " line, and after 10 ms `threadCode()` is entered again.
class VELK_EXPORT Thread {
public:
    Thread() = default;
    /// The thread has to be stopped before: destroying a running object is the caller's error,
    /// asserted in debug builds. Where a derived class has members that `threadCode()` uses, they
    /// are gone before this destructor runs.
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Starts the thread and returns at once. May follow a stop(). From any thread.
    /// @throws VelkException if the thread is running, or could not be created.
    void start();

    /// Ends the thread from outside and returns when it is gone. Harmless if it never ran or has
    /// ended. Blocks for as long as the thread stays outside of a CancellableScope, so as long as a
    /// call of the client's own code on that thread lasts. An exception's pause of 10 ms is such a
    /// scope. From any thread but the one to be ended.
    /// @throws VelkException if called from the thread itself.
    void stop();

    /// True from start() until the thread has ended. Does not block; from any thread.
    bool running() const { return alive; }

protected:
    /// The body of the thread.
    virtual void threadCode() = 0;

private:
    static void* entry(void* thread);
    void runThreadCode();
    void throwIfOwnThread(const char* operation) const;

    /// The kernel's id of the thread while it runs, otherwise -1. Written by the thread alone.
    std::atomic<std::int32_t> threadId{-1};
    std::atomic<bool> alive{false};

    std::mutex lifecycle; ///< Serialises start() and stop(); guards the two below.
    pthread_t handle{};
    bool joinable = false;
};
