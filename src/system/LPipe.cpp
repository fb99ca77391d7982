#include "system/LPipe.h"

#include "system/LShell.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/wait.h>
#include <utility>

namespace {

// Both ends above the standard descriptors, which the child's are put in the place of.
bool MakePipe(LDescriptor& readEnd, LDescriptor& writeEnd) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return false;
    const LDescriptor first(ends[0]), second(ends[1]);
    readEnd.Reset(::fcntl(first.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    writeEnd.Reset(::fcntl(second.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    return readEnd && writeEnd;
}

// -1: it could not be started.
pid_t Spawn(const char* command, std::span<const LSpawnedDescriptor> passed) {
    const char* const none = nullptr;
    pid_t pid = -1;
    return LSpawnShell(command, &none, passed, pid) == 0 ? pid : -1;
}

void AwaitEnd(pid_t& pid) {
    while (pid >= 0 && ::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) continue;
    pid = -1;
}

}  // namespace

// Not popen: its commands inherit what this process ignores and blocks. One that SIGPIPE doesn't end writes for ever
// after its reader has gone, and Close would wait for it.
bool LPipeStream::Open(const char* command, bool isReading) {
    Close();
    LDescriptor readEnd, writeEnd;
    if (!command || !MakePipe(readEnd, writeEnd)) return false;
    LDescriptor& ours = isReading ? readEnd : writeEnd;
    const LDescriptor& childs = isReading ? writeEnd : readEnd;
    const LSpawnedDescriptor passed[] = {{childs.Get(), isReading ? STDOUT_FILENO : STDIN_FILENO}};
    std::FILE* const opened = ::fdopen(ours.Get(), isReading ? "r" : "w");
    if (!opened) return false;
    descriptor = ours.Release();
    stream = opened;
    pid = Spawn(command, passed);
    if (pid < 0) Close();
    return stream != nullptr;
}

void LPipeStream::Close() {
    descriptor = -1;
    if (std::FILE* const open = std::exchange(stream, nullptr)) std::fclose(open);
    AwaitEnd(pid);
}

bool LPipeInOut::_Open(const char* command, unsigned long, unsigned long) {
    Close();
    LDescriptor childsOutput, childsInput, fromChild, toChild;
    if (!command || !MakePipe(fromChild, childsOutput) || !MakePipe(childsInput, toChild)) return false;
    const LSpawnedDescriptor passed[] = {{childsInput.Get(), STDIN_FILENO}, {childsOutput.Get(), STDOUT_FILENO}};
    pid = Spawn(command, passed);
    if (pid < 0) return false;
    reading = std::move(fromChild);
    writing = std::move(toChild);
    return true;
}

// The descriptors first: a command that reads or writes comes to its end then.
void LPipeInOut::Close() {
    writing.Reset();
    reading.Reset();
    AwaitEnd(pid);
}
