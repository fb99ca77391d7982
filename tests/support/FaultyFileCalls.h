// FaultyFileCalls: the system's file calls with one fault in them: the n-th call fails, once or from then on for good.
// "Short" lets a write take only half of its bytes (one byte at least); it is no failure. For one thread.
#pragma once

#include "FileCalls.h"

class FaultyFileCalls : public platform::FileCalls {
public:
    struct Fault {
        int call = 0;   // 1 is the first; 0: none
        int error = 0;  // errno; 0: a short write
        bool forGood = false;
    };

    void Arm(Fault newFault) {
        fault = newFault;
        count = 0;
    }
    // Whether the armed fault's turn came.
    bool HasFired() const { return fault.call > 0 && count >= fault.call; }

    int Open(const char* path, int flags, mode_t mode) override {
        return Fails() ? -1 : FileCalls::Open(path, flags, mode);
    }
    int Close(int descriptor) override {
        const bool fails = Fails();
        const int result = FileCalls::Close(descriptor);  // a close that fails has closed all the same
        return fails ? -1 : result;
    }
    int Stat(int descriptor, struct stat& info) override { return Fails() ? -1 : FileCalls::Stat(descriptor, info); }
    ssize_t Read(int descriptor, void* bytes, size_t size) override {
        return Fails() ? -1 : FileCalls::Read(descriptor, bytes, size);
    }
    ssize_t Write(int descriptor, const void* bytes, size_t size) override {
        if (Fails()) return -1;
        const bool isShort = fault.error == 0 && HasFired() && (fault.forGood || count == fault.call);
        return FileCalls::Write(descriptor, bytes, isShort && size > 1 ? size / 2 : size);
    }
    int Sync(int descriptor) override { return Fails() ? -1 : FileCalls::Sync(descriptor); }
    int Rename(const char* from, const char* to) override { return Fails() ? -1 : FileCalls::Rename(from, to); }
    int RenameWithoutReplacing(const char* from, const char* to) override {
        return Fails() ? -1 : FileCalls::RenameWithoutReplacing(from, to);
    }
    int Unlink(const char* path) override { return Fails() ? -1 : FileCalls::Unlink(path); }
    int MakeFolder(const char* path, mode_t mode) override { return Fails() ? -1 : FileCalls::MakeFolder(path, mode); }

private:
    bool Fails() {
        count++;
        if (fault.error == 0 || !HasFired() || (count > fault.call && !fault.forGood)) return false;
        errno = fault.error;
        return true;
    }

    Fault fault;
    int count = 0;
};
