#pragma once

#include <utility>

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

    /// -1 if there is none.
    int get() const { return fd; }
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
