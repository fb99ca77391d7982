#include "threads/LProcessRun.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <sys/wait.h>

namespace {

void Run(ProcessRunData& data) {
    data.status = 0;
    FILE* const input = ::popen(data.commandLine.Get(), "we");
    const int how = input ? ::pclose(input) : -1;
    // Where children are reaped by themselves (SIGCHLD ignored) nobody learns how the command ended.
    if (how < 0 && !(input && errno == ECHILD)) data.status = 2;
    if (how >= 0 && WIFEXITED(how)) data.exitCode = WEXITSTATUS(how);
}

}  // namespace

void* ProcessRunThreadCallback(void* argument) {
    const std::unique_ptr<ProcessRunData> data(static_cast<ProcessRunData*>(argument));
    Run(*data);
    data->doneSignal.Signal();
    while (!data->releaseSignal.IsSignaled()) data->releaseSignal.WaitSignal(kSignalNoTimeOut);
    { const LLockObjectGuard untilReleased(data->releasing); }
    return nullptr;
}
