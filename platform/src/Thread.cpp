// SPDX-License-Identifier: MIT
#include "velk/Thread.h"

#include "velk/CancellableScope.h"
#include "velk/LogStream.h"
#include "velk/LogUtil.h"
#include "velk/Millisleep.h"
#include "velk/VelkException.h"

#include <cassert>
#include <csignal>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>

#include <unistd.h>

namespace {

constexpr int pauseAfterExceptionMs = 10;

void blockSigpipe()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void cancelAndJoin(pthread_t thread)
{
    pthread_cancel(thread);
    pthread_join(thread, nullptr);
}

} // namespace

Thread::~Thread()
{
    assert(!alive && "stop() has to come before the destructor");
    if (joinable) {
        cancelAndJoin(handle);
    }
}

void Thread::start()
{
    throwIfOwnThread("start");
    const std::lock_guard<std::mutex> lock(lifecycle);
    if (obstacle != nullptr) {
        throwVelkException("Thread::start(): ", obstacle);
    }
    if (alive) {
        throwVelkException("Thread::start(): the thread is running already");
    }
    if (joinable) {
        pthread_join(handle, nullptr);
        joinable = false;
    }
    alive = true;
    const int result = pthread_create(&handle, nullptr, &Thread::entry, this);
    if (result != 0) {
        alive = false;
        throwVelkException("Thread::start(): failed to create the thread: ", std::strerror(result));
    }
    joinable = true;
}

void Thread::stop()
{
    throwIfOwnThread("stop");
    const std::lock_guard<std::mutex> lock(lifecycle);
    if (!joinable) {
        return;
    }
    cancelAndJoin(handle);
    joinable = false;
}

void Thread::throwIfOwnThread(const char* operation) const
{
    if (threadId == gettid()) {
        throwVelkException("Thread::", operation, "(): called from the thread itself");
    }
}

void Thread::logException(const char* text) const
{
    constexpr const char* what = "Thread::threadCode() left by an exception: ";
    if (logSink) {
        try {
            logSink(LogUtil::Level::error, std::string(what) + text);
        } catch (...) { // the line is lost
        }
        return;
    }
    const std::lock_guard<std::mutex> lock(LogUtil::logMutex);
    LogStream(std::cerr) << "[ERROR] " << what << text << '\n';
}

void* Thread::entry(void* thread)
{
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    blockSigpipe();
    static_cast<Thread*>(thread)->runThreadCode();
    return nullptr;
}

void Thread::runThreadCode()
{
    struct Lifetime {
        explicit Lifetime(Thread& thread) : owner(thread) { owner.threadId = gettid(); }
        ~Lifetime()
        {
            owner.threadId = -1;
            owner.alive = false;
        }
        Lifetime(const Lifetime&) = delete;
        Lifetime& operator=(const Lifetime&) = delete;
        Thread& owner;
    };
    const Lifetime lifetime(*this);

    for (;;) {
        try {
            threadCode();
            return;
        } catch (const ThreadCancellation&) {
            throw; // a stop, not an error
        } catch (const std::exception& error) {
            logException(error.what());
        } catch (...) {
            logException("not a std::exception");
        }
        // So that a stop can end a body that always fails before its first blocking call.
        const CancellableScope cancellable;
        millisleep(pauseAfterExceptionMs);
    }
}
