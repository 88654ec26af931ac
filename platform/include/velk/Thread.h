// SPDX-License-Identifier: MIT
#pragma once

#include "velk/Export.h"
#include "velk/LogUtil.h"

#include <atomic>
#include <cstdint>
#include <mutex>

#include <pthread.h>

/// Base of a class whose `threadCode()` runs on a thread of its own.
///
/// The thread runs with SIGPIPE blocked, so that a write to a pipe without a reader fails with EPIPE. No
/// other signal and no disposition changes. Cancellation is disabled except inside a CancellableScope.
///
/// An exception that leaves `threadCode()` does not end the thread: its text goes to `std::cerr` as an
/// "[ERROR] " line, or to the sink, and after 10 ms `threadCode()` is called again.
class VELK_EXPORT Thread {
public:
    Thread() = default;
    /// Call stop() before: destroying a running object is the caller's error, asserted in debug builds. The
    /// members of a derived class, which `threadCode()` uses, are destroyed before this destructor runs.
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Starts the thread. May follow a stop(), and waits for a stop() in progress. From any thread except
    /// the one that the object runs.
    /// @throws VelkException if the thread is running or could not be created, if the derived class is not
    /// ready, or if called from the thread itself.
    void start();

    /// Ends the thread and returns when it has ended. Does nothing if it never ran or has ended. Blocks
    /// while the thread is outside of a CancellableScope, for example in client code. From any thread except
    /// the one to be ended.
    /// @throws VelkException if called from the thread itself.
    void stop();

    /// @return true from start() until the thread has ended. Does not block; from any thread.
    bool running() const { return alive; }

protected:
    /// The body of the thread.
    virtual void threadCode() = 0;

    /// Why start() has to throw; null if it may start. Static text, set before start().
    const char* obstacle = nullptr;
    /// Receives the log lines if it is not empty. Set before start().
    LogUtil::Sink logSink;

private:
    static void* entry(void* thread);
    void runThreadCode();
    void logException(const char* text) const;
    void throwIfOwnThread(const char* operation) const;

    /// The kernel's id of the thread while it runs, otherwise -1. Only the thread writes it.
    std::atomic<std::int32_t> threadId{-1};
    std::atomic<bool> alive{false};

    std::mutex lifecycle; ///< Serialises start() and stop(); guards the next two.
    pthread_t handle{};
    bool joinable = false;
};
