// SPDX-License-Identifier: MIT
#include "common/Counting.h"

#include <cstdlib>
#include <new>

#include <malloc.h>

// These functions replace those that the shared libraries call, so the libraries are measured as they are shipped.

namespace {

long sizeOf(void* block) { return static_cast<long>(malloc_usable_size(block)); }

} // namespace

[[gnu::noinline]] void* operator new(std::size_t size) // inlined, g++ reports a mismatched delete
{
    void* block = std::malloc(size); // NOLINT(*-no-malloc)
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    ++Counting::allocations;
    Counting::bytesInUse += sizeOf(block);
    return block;
}

[[gnu::noinline]] void operator delete(void* block) noexcept
{
    Counting::bytesInUse -= sizeOf(block);
    std::free(block); // NOLINT(*-no-malloc)
}

void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
