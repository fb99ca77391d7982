#include "system/LPipe.h"

#include "system/LShell.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/wait.h>
#include <utility>

bool LPipeStream::Open(const char* command, const char* mode) {
    Close();
    stream = command ? ::popen(command, mode) : nullptr;
    descriptor = stream ? ::fileno(stream) : -1;
    return stream != nullptr;
}

void LPipeStream::Close() {
    descriptor = -1;
    if (std::FILE* const open = std::exchange(stream, nullptr)) ::pclose(open);
}

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

}  // namespace

bool LPipeInOut::_Open(const char* command, unsigned long, unsigned long) {
    Close();
    LDescriptor childsOutput, childsInput, fromChild, toChild;
    if (!command || !MakePipe(fromChild, childsOutput) || !MakePipe(childsInput, toChild)) return false;
    const LSpawnedDescriptor passed[] = {{childsInput.Get(), STDIN_FILENO}, {childsOutput.Get(), STDOUT_FILENO}};
    const char* const none = nullptr;
    if (LSpawnShell(command, &none, passed, pid) != 0) {
        pid = -1;
        return false;
    }
    reading = std::move(fromChild);
    writing = std::move(toChild);
    return true;
}

// The descriptors first: a command that reads or writes comes to its end then.
void LPipeInOut::Close() {
    writing.Reset();
    reading.Reset();
    if (pid < 0) return;
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) continue;
    pid = -1;
}
