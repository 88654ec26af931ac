#include "velk/Thread.h"

#include "velk/CancellableScope.h"
#include "velk/LogUtil.h"
#include "velk/Millisleep.h"
#include "velk/VelkException.h"

#include <cassert>
#include <csignal>
#include <cstring>
#include <exception>
#include <iostream>

#include <cxxabi.h>
#include <unistd.h>

namespace {

constexpr int pauseAfterExceptionMs = 10;

void logException(const char* text)
{
    const std::lock_guard<std::mutex> lock(LogUtil::logMutex);
    std::cerr << "[ERROR] Thread::threadCode() left by an exception: " << text << std::endl;
}

void blockSigpipe()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

} // namespace

Thread::~Thread()
{
    assert(!alive && "stop() has to come before the destructor");
    if (joinable) {
        pthread_cancel(handle);
        pthread_join(handle, nullptr);
    }
}

void Thread::start()
{
    throwIfOwnThread("start");
    const std::lock_guard<std::mutex> lock(lifecycle);
    if (alive) {
        VelkException error;
        error << "Thread::start(): the thread is running already";
        throw error;
    }
    if (joinable) {
        pthread_join(handle, nullptr);
        joinable = false;
    }
    alive = true;
    const int result = pthread_create(&handle, nullptr, &Thread::entry, this);
    if (result != 0) {
        alive = false;
        VelkException error;
        error << "Thread::start(): failed to create the thread: " << std::strerror(result);
        throw error;
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
    pthread_cancel(handle);
    pthread_join(handle, nullptr);
    joinable = false;
}

void Thread::throwIfOwnThread(const char* operation) const
{
    if (threadId == gettid()) {
        VelkException error;
        error << "Thread::" << operation << "(): called from the thread itself";
        throw error;
    }
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
        } catch (const abi::__forced_unwind&) {
            throw; // a stop, no exception
        } catch (const std::exception& error) {
            logException(error.what());
        } catch (...) {
            logException("not a std::exception");
        }
        // A body that fails before its first blocking call can be stopped here.
        const CancellableScope cancellable;
        millisleep(pauseAfterExceptionMs);
    }
}
