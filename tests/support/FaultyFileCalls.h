// FaultyFileCalls: passes file calls on to others, with one fault in them: the n-th call fails, once or from then on
// for good, or the program is killed before it. "Short" lets a write take only half of its bytes (one byte at least);
// it is no failure. What it passes to outlives it. For one thread.
#pragma once

#include "FileCalls.h"

#include <cerrno>

class FaultyFileCalls : public platform::FileCalls {
public:
    static constexpr int kKilled = -1;
    struct Killed {};  // thrown

    struct Fault {
        int call = 0;   // 1 is the first; 0: none
        int error = 0;  // errno; 0: a short write; or kKilled
        bool forGood = false;
    };

    explicit FaultyFileCalls(platform::FileCalls& to = platform::FileCalls::System()) : inner(to) {}

    void Arm(Fault newFault) {
        fault = newFault;
        count = 0;
    }
    // Whether the armed fault's turn came.
    bool HasFired() const { return fault.call > 0 && count >= fault.call; }

    int Open(const char* path, int flags, mode_t mode) override {
        return IsAdmitted() ? inner.Open(path, flags, mode) : -1;
    }
    // What fails to close is closed all the same, and so is what a killed program leaves open.
    int Close(int descriptor) override {
        const bool isAdmitted = fault.error == kKilled || IsAdmitted();
        const int error = errno;
        const int result = inner.Close(descriptor);
        errno = error;
        return isAdmitted ? result : -1;
    }
    int Stat(int descriptor, struct stat& info) override { return IsAdmitted() ? inner.Stat(descriptor, info) : -1; }
    ssize_t Read(int descriptor, void* bytes, size_t size) override {
        return IsAdmitted() ? inner.Read(descriptor, bytes, size) : -1;
    }
    ssize_t Write(int descriptor, const iovec* parts, int size) override {
        if (!IsAdmitted()) return -1;
        if (fault.error != 0 || !IsTurn()) return inner.Write(descriptor, parts, size);
        const iovec half{parts->iov_base, (parts->iov_len + 1) / 2};
        return inner.Write(descriptor, &half, 1);
    }
    int Sync(int descriptor) override { return IsAdmitted() ? inner.Sync(descriptor) : -1; }
    int Rename(const char* from, const char* to) override { return IsAdmitted() ? inner.Rename(from, to) : -1; }
    int RenameWithoutReplacing(const char* from, const char* to) override {
        return IsAdmitted() ? inner.RenameWithoutReplacing(from, to) : -1;
    }
    int Unlink(const char* path) override { return IsAdmitted() ? inner.Unlink(path) : -1; }
    int MakeFolder(const char* path, mode_t mode) override { return IsAdmitted() ? inner.MakeFolder(path, mode) : -1; }

private:
    bool IsTurn() const { return fault.call > 0 && (count == fault.call || (fault.forGood && count > fault.call)); }
    bool IsAdmitted() {
        count++;
        if (!IsTurn() || fault.error == 0) return true;
        if (fault.error == kKilled) throw Killed();
        errno = fault.error;
        return false;
    }

    platform::FileCalls& inner;
    Fault fault;
    int count = 0;
};
