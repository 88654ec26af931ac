#pragma once

#include <algorithm>
#include <climits>
#include <cstddef>
#include <vector>

#include <sys/select.h>

/// A set for select(2) that holds one descriptor of any number. The kernel takes sets of any size;
/// only the fixed fd_set ends at 1024.
class DescriptorSet {
public:
    explicit DescriptorSet(int fd)
        : descriptor(static_cast<std::size_t>(fd)),
          words(std::max(sizeof(fd_set) / sizeof(unsigned long), descriptor / bitsPerWord + 1))
    {
    }

    /// Puts the descriptor in; a call of select() leaves in what is ready.
    void fill() { words[descriptor / bitsPerWord] = bit(); }
    bool contains() const { return (words[descriptor / bitsPerWord] & bit()) != 0; }

    fd_set* forSelect() { return reinterpret_cast<fd_set*>(words.data()); }
    int count() const { return static_cast<int>(descriptor) + 1; }

private:
    static constexpr std::size_t bitsPerWord = sizeof(unsigned long) * CHAR_BIT;
    unsigned long bit() const { return 1UL << (descriptor % bitsPerWord); }

    std::size_t descriptor;
    std::vector<unsigned long> words;
};
