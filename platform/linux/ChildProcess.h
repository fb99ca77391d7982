// ChildProcess: a process that this one has started, reaped when it ends without anybody waiting for it: its pidfd sits
// in the pool's event set. Not by a SIGCHLD handler, which would take the exit status away from whoever waits for a
// child of its own. Any thread.
#pragma once

#include "EventSet.h"

#include <bsd/LMutex.h>

#include <memory>
#include <sys/types.h>

namespace platform {

class ChildProcess final : public Watcher {
public:
    // Takes over the reaping of a child. The object lives at least as long as the process does. Without a descriptor
    // left for it, the child is reaped by IsRunning.
    static std::shared_ptr<ChildProcess> Watch(pid_t pid);

    pid_t Pid() const { return pid; }
    // Whether it has not ended yet, by the kernel's word.
    bool IsRunning() L_EXCLUDES(mutex);

    explicit ChildProcess(pid_t childPid) : pid(childPid) {}
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

private:
    void OnReady(uint32_t events) override;

    const pid_t pid;
    Descriptor pidfd;
    std::shared_ptr<ChildProcess> self;  // while the event set knows it

    LMutex mutex;
    bool reaped L_GUARDED_BY(mutex) = false;
};

}  // namespace platform
