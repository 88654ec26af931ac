#pragma once

#include <atomic>
#include <cstdlib>
#include <new>

#include <dlfcn.h>
#include <malloc.h>

/// Counts what a process does. For one source file of a program: its functions replace those that the shared
/// libraries call, so the libraries are measured as they are shipped.
namespace Counting {

inline std::atomic<long> allocations{0};
inline std::atomic<long> bytesInUse{0}; ///< With the rounding of the allocator.

inline long sizeOf(void* block) { return static_cast<long>(malloc_usable_size(block)); }

} // namespace Counting

[[gnu::noinline]] void* operator new(std::size_t size) // inlined, g++ reports a mismatched delete
{
    void* block = std::malloc(size); // NOLINT(*-no-malloc)
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    ++Counting::allocations;
    Counting::bytesInUse += Counting::sizeOf(block);
    return block;
}

[[gnu::noinline]] void operator delete(void* block) noexcept
{
    Counting::bytesInUse -= Counting::sizeOf(block);
    std::free(block); // NOLINT(*-no-malloc)
}

void operator delete(void* block, std::size_t) noexcept { operator delete(block); }

/// Counts the calls of a function of libc.
#define COUNTED(counter, result, name, parameters, arguments)                                      \
    extern "C" result counted_##name parameters asm(#name);                                        \
    result counted_##name parameters                                                               \
    {                                                                                              \
        static const auto next = reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name));     \
        ++(counter);                                                                               \
        return next arguments;                                                                     \
    }
