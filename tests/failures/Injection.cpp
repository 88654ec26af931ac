// SPDX-License-Identifier: MIT
#include "failures/Injection.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include <pthread.h>
#include <sys/select.h>

namespace {

std::atomic<const char*> armed{""};
std::atomic<long> turnToFail{0};
std::atomic<bool> forever{false};
std::atomic<long> calls{0};
std::atomic<long> blocks{0};

bool fails(const char* call)
{
    if (std::strcmp(armed, call) != 0) {
        return false;
    }
    const long turn = ++calls;
    return turn == turnToFail || (forever && turn > turnToFail);
}

/// Does what `real` would do, unless it is this call's turn to fail.
template <typename Result, typename... Parameters, typename... Arguments>
Result call(const char* name, int error, Result (*real)(Parameters...), Arguments... arguments)
{
    if (!fails(name)) {
        return real(arguments...);
    }
    pthread_testcancel(); // as every call that may block
    errno = error;
    return -1;
}

} // namespace

void Injection::arm(const char* call, long turn, bool always)
{
    calls = 0;
    turnToFail = turn;
    forever = always;
    armed = call;
}

void Injection::disarm() { armed = ""; }

bool Injection::hasHit() { return calls >= turnToFail; }

long Injection::blocksInUse() { return blocks; }

void* operator new(std::size_t size)
{
    void* block = fails("allocation") ? nullptr : std::malloc(size); // NOLINT(*-no-malloc)
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    ++blocks;
    return block;
}

void operator delete(void* block) noexcept
{
    blocks -= block != nullptr ? 1 : 0;
    std::free(block); // NOLINT(*-no-malloc)
}

void operator delete(void* block, std::size_t) noexcept { operator delete(block); }

namespace Injection {

// The linker leads each call of f to __wrap_f, and __real_f to what had been meant.
#define WRAP(result, name, parameters)                                                             \
    result real_##name parameters asm("__real_" #name);                                            \
    result wrap_##name parameters asm("__wrap_" #name);                                            \
    result wrap_##name parameters

#define MAY_FAIL(result, name, error, parameters, ...)                                             \
    WRAP(result, name, parameters) { return call(#name, error, real_##name, __VA_ARGS__); }

MAY_FAIL(int, pipe2, EMFILE, (int* ends, int flags), ends, flags)
MAY_FAIL(int, fcntl, EINVAL, (int fd, int command, long value), fd, command, value) // or a pointer
MAY_FAIL(ssize_t, read, EIO, (int fd, void* bytes, std::size_t size), fd, bytes, size)
MAY_FAIL(ssize_t, write, EIO, (int fd, const void* bytes, std::size_t size), fd, bytes, size)
MAY_FAIL(int, pselect, ENOMEM,
         (int count, fd_set* in, fd_set* out, fd_set* rest, const timespec* time,
          const sigset_t* mask),
         count, in, out, rest, time, mask)

/// Time runs faster here: an answer that a failure has cost is missed after 20 ms, not after 1 s.
WRAP(int, select, (int count, fd_set* in, fd_set* out, fd_set* rest, timeval* left))
{
    constexpr long speed = 50;
    if (left == nullptr) {
        return call("select", ENOMEM, real_select, count, in, out, rest, nullptr);
    }
    timeval faster{0, (left->tv_sec * 1000000 + left->tv_usec) / speed};
    const int ready = call("select", ENOMEM, real_select, count, in, out, rest, &faster);
    *left = {faster.tv_usec * speed / 1000000, faster.tv_usec * speed % 1000000};
    return ready;
}

WRAP(int, pthread_create,
     (pthread_t * thread, const pthread_attr_t* how, void* (*routine)(void*), void* argument))
{
    return fails("pthread_create") ? EAGAIN : real_pthread_create(thread, how, routine, argument);
}

} // namespace Injection
