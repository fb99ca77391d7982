#include "debug/LHangDetector.h"

#include "files/LFile.h"
#include "text/LCopyBounded.h"

#include <bsd/LDescriptor.h>
#include <bsd/exlock.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

constinit LHangDetector gLHangDetector;

namespace {

struct StartRecord {
    uint32_t seconds;
    uint32_t milliseconds;
};
static_assert(sizeof(StartRecord) == 8);

StartRecord Now() {
    timeval now{};
    ::gettimeofday(&now, nullptr);
    const auto seconds = static_cast<uint64_t>(now.tv_sec);
    return {static_cast<uint32_t>(seconds),
            static_cast<uint32_t>(seconds * 1'000 + static_cast<uint64_t>(now.tv_usec) / 1'000)};
}

const char* UserName() {
    for (const char* variable : {"LOGNAME", "USER"})
        if (const char* name = std::getenv(variable); name && *name) return name;
    return "";
}

// False when the path has no room: a cut one would be another user's.
bool MarkerPath(char (&path)[LTextBufferSize]) {
    char name[LTextBufferSize] = "_schedulehelper_rl_", folder[LTextBufferSize];
    const char* const user = UserName();
    LFile::GetTempFolder(folder);
    const size_t length = std::strlen(name) + std::strlen(user);
    if (!*folder || std::strlen(folder) + 1 + length >= sizeof path) return false;
    LAppendBounded(name, user, sizeof name);
    std::replace(name, name + length, '/', '_');
    LCopyBounded(path, folder, sizeof path);
    if (path[std::strlen(path) - 1] != '/') LAppendBounded(path, "/", sizeof path);
    LAppendBounded(path, name, sizeof path);
    return true;
}

// A marker that can't be written, on a full disk say, still marks.
void Write(int descriptor, const StartRecord& record) {
    if (::ftruncate(descriptor, 0) == 0 && ::write(descriptor, &record, sizeof record) == sizeof record) return;
    ::perror("the marker of a running instance");
}

bool IsFile(int descriptor) {
    struct stat info {};
    return ::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode);
}

}  // namespace

// Opening takes the lock, and looks whether the path still leads to what was locked. So a file that somebody else just
// made and hasn't locked yet can't be taken for one left behind: whoever has the lock has the marker.
void LHangDetector::InitAndTest() {
    Destroy();
    const StartRecord start = Now();
    if (!MarkerPath(path)) return;
    LDescriptor file(::open_exlock(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0666));
    if (!file || !IsFile(file.Get())) return;
    Write(file.Get(), start);
    owner = ::getpid();
    descriptor = file.Release();
    isMarked = true;
}

void LHangDetector::Destroy() {
    DeleteMarker();
    const LDescriptor file(descriptor.exchange(-1));
}

void LHangDetector::DeleteMarker() {
    if (isMarked.exchange(false) && owner == ::getpid()) ::unlink(path);
}

void LDebugHangDetectorInit() {
    gLHangDetector.InitAndTest();
}

void LDebugHangDetectorDestroy() {
    gLHangDetector.Destroy();
}
