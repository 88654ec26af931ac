// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

#include <dlfcn.h>

/// Counts what a process does. A program that uses it also has Counting.cpp.
namespace Counting {

inline std::atomic<long> allocations{0};
inline std::atomic<long> bytesInUse{0}; ///< With the rounding of the allocator.

} // namespace Counting

/// Counts the calls of a function of libc. For one source file of a program.
#define COUNTED(counter, result, name, parameters, arguments)                                      \
    extern "C" result counted_##name parameters asm(#name);                                        \
    result counted_##name parameters                                                               \
    {                                                                                              \
        static const auto next = reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name));     \
        ++(counter);                                                                               \
        return next arguments;                                                                     \
    }
