// SPDX-License-Identifier: MIT
#pragma once

#include <utility>

#include <fcntl.h>
#include <unistd.h>

/// Owns one descriptor and closes it.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : fd(descriptor) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        if (this != &other) {
            reset();
            fd = std::exchange(other.fd, -1);
        }
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    /// @return the descriptor, -1 if there is none.
    int get() const { return fd; }
    /// Releases the descriptor without closing it. @return the descriptor, -1 if there was none.
    int release() { return std::exchange(fd, -1); }
    void reset()
    {
        if (fd != -1) {
            close(fd);
            fd = -1;
        }
    }

private:
    int fd = -1;
};

/// @return a descriptor of the same open file that is not 0, 1 or 2: a host program that runs without its
/// standard streams must not write its output there. A new one is close-on-exec; the argument has to be
/// close-on-exec already. Empty on failure, with errno set, or if the argument is empty.
inline Descriptor aboveStandardStreams(Descriptor descriptor)
{
    constexpr int lowest = STDERR_FILENO + 1;
    if (descriptor.get() == -1 || descriptor.get() >= lowest) {
        return descriptor;
    }
    return Descriptor(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, lowest));
}
