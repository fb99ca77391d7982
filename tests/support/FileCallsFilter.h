// FileCallsFilter: passes file calls on to others, unless a derived class doesn't admit one: then it fails, and nothing
// happened. What it passes to outlives it. Threads as those calls.
#pragma once

#include "FileCalls.h"

#include <utility>

class FileCallsFilter : public platform::FileCalls {
public:
    enum class Call { Open, Close, Stat, Read, Write, Sync, Rename, RenameWithoutReplacing, Unlink, MakeFolder };

    explicit FileCallsFilter(platform::FileCalls& to = platform::FileCalls::System()) : inner(to) {}

    int Open(const char* path, int flags, mode_t mode) override {
        return Admitted(Call::Open, [&] { return inner.Open(path, flags, mode); });
    }
    int Close(int descriptor) override {
        const bool admitted = Admit(Call::Close);
        const int error = errno;
        const int result = inner.Close(descriptor);  // a close that fails has closed all the same
        errno = error;
        return admitted ? result : -1;
    }
    int Stat(int descriptor, struct stat& info) override {
        return Admitted(Call::Stat, [&] { return inner.Stat(descriptor, info); });
    }
    ssize_t Read(int descriptor, void* bytes, size_t size) override {
        return Admitted(Call::Read, [&] { return inner.Read(descriptor, bytes, size); });
    }
    ssize_t Write(int descriptor, const iovec* parts, int count) override {
        return Admitted(Call::Write, [&] { return inner.Write(descriptor, parts, count); });
    }
    int Sync(int descriptor) override {
        return Admitted(Call::Sync, [&] { return inner.Sync(descriptor); });
    }
    int Rename(const char* from, const char* to) override {
        return Admitted(Call::Rename, [&] { return inner.Rename(from, to); });
    }
    int RenameWithoutReplacing(const char* from, const char* to) override {
        return Admitted(Call::RenameWithoutReplacing, [&] { return inner.RenameWithoutReplacing(from, to); });
    }
    int Unlink(const char* path) override {
        return Admitted(Call::Unlink, [&] { return inner.Unlink(path); });
    }
    int MakeFolder(const char* path, mode_t mode) override {
        return Admitted(Call::MakeFolder, [&] { return inner.MakeFolder(path, mode); });
    }

protected:
    // Asked before each call. False: it fails with the errno that this has set.
    virtual bool Admit(Call) { return true; }

private:
    template <class Make>
    auto Admitted(Call call, Make make) -> decltype(make()) {
        return Admit(call) ? make() : -1;
    }

    platform::FileCalls& inner;
};
