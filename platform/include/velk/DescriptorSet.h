// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <climits>
#include <cstddef>
#include <vector>

#include <sys/select.h>
#include <sys/time.h>

/// A set for select(2) that holds one descriptor of any number, or nothing. The kernel accepts sets of any
/// size; only the fd_set type is limited to 1024.
class DescriptorSet {
public:
    explicit DescriptorSet(int fd)
        : descriptor(static_cast<std::size_t>(fd)),
          words(std::max(sizeof(fd_set) / sizeof(unsigned long), descriptor / bitsPerWord + 1))
    {
    }

    void fill() { words[descriptor / bitsPerWord] = bit(); }
    void empty() { words[descriptor / bitsPerWord] = 0; }
    bool contains() const { return (words[descriptor / bitsPerWord] & bit()) != 0; }

    /// Waits until the descriptor is readable or the time `left` has passed; null: no limit. A descriptor
    /// that is ready stays in the set. The remaining time is written back to `left`, unless the wait is
    /// cancelled. A cancellation point.
    /// @return as select(2): 1 ready, 0 timeout, -1 failure with errno set.
    int select(timeval* left) { return ::select(count(), forKernel(), nullptr, nullptr, left); }

    /// Checks without waiting. @return as select(2).
    int poll()
    {
        const timespec atOnce{0, 0};
        return ::pselect(count(), forKernel(), nullptr, nullptr, &atOnce, nullptr);
    }

private:
    fd_set* forKernel() { return reinterpret_cast<fd_set*>(words.data()); }
    int count() const { return static_cast<int>(descriptor) + 1; }

    static constexpr std::size_t bitsPerWord = sizeof(unsigned long) * CHAR_BIT;
    unsigned long bit() const { return 1UL << (descriptor % bitsPerWord); }

    std::size_t descriptor;
    std::vector<unsigned long> words;
};
