// Descriptor: owns one file descriptor from the system call on and closes it once. Moves, never copies. Not for sharing
// between threads without a lock of the owner's.
#pragma once

#include <unistd.h>
#include <utility>

namespace platform {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : fd(descriptor) {}
    ~Descriptor() { Reset(); }
    Descriptor(Descriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) Reset(std::exchange(other.fd, -1));
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Get() const { return fd; }
    explicit operator bool() const { return fd >= 0; }
    int Release() { return std::exchange(fd, -1); }  // the caller closes it
    void Reset(int descriptor = -1) {
        if (fd >= 0) ::close(fd);
        fd = descriptor;
    }

private:
    int fd = -1;
};

}  // namespace platform
