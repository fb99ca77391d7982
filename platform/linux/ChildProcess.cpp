#include "ChildProcess.h"

#include "EventPool.h"

#include <cerrno>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace platform {

std::shared_ptr<ChildProcess> ChildProcess::Watch(pid_t pid) {
    auto child = std::make_shared<ChildProcess>(pid);
    child->pidfd.Reset(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));  // close-on-exec by itself
    if (!child->pidfd) return child;
    child->self = child;
    if (!EventPool::Shared().Events().Add(child->pidfd.Get(), EPOLLIN, *child)) child->self.reset();
    return child;
}

bool ChildProcess::IsRunning() {
    LMutexLock lock(mutex);
    if (reaped) return false;
    pid_t result;
    do result = ::waitpid(pid, nullptr, WNOHANG);
    while (result < 0 && errno == EINTR);
    reaped = result != 0;  // an error: somebody else has reaped it
    return !reaped;
}

void ChildProcess::OnReady(uint32_t) {
    IsRunning();
    EventPool::Shared().Events().Remove(pidfd.Get());
    const std::shared_ptr<ChildProcess> last = std::move(self);
}

}  // namespace platform
