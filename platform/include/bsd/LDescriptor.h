// LDescriptor: owns one file descriptor, or none (-1), from the system call on and closes it once. Moves, never copies.
// Not for sharing between threads without a lock of the owner's.
#pragma once

#include <unistd.h>
#include <utility>

class LDescriptor {
public:
    LDescriptor() = default;
    explicit LDescriptor(int descriptor) : fd(descriptor) {}
    ~LDescriptor() { Close(); }
    LDescriptor(LDescriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    LDescriptor& operator=(LDescriptor&& other) noexcept {
        if (this != &other) Reset(std::exchange(other.fd, -1));
        return *this;
    }
    LDescriptor(const LDescriptor&) = delete;
    LDescriptor& operator=(const LDescriptor&) = delete;

    int Get() const { return fd; }
    explicit operator bool() const { return fd >= 0; }
    int Release() { return std::exchange(fd, -1); }  // the caller closes it
    void Reset(int descriptor = -1) {
        Close();
        fd = descriptor;
    }
    // False when closing fails: what was written may be lost then. True for none.
    bool Close() { return fd < 0 || ::close(std::exchange(fd, -1)) == 0; }

private:
    int fd = -1;
};
