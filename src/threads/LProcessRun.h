// One shell command on a thread of its own, for callers that wait for its end in their own way and may stop waiting.
#pragma once

#include "text/LStringLong.h"
#include "threads/LLockObject.h"
#include "threads/LSignalObject.h"

// Shared by two: the side that starts it makes it with new, hands it to a thread that runs ProcessRunThreadCallback,
// waits for doneSignal as long as it likes, reads the results and calls Release, whatever it read. The thread deletes
// it then.
struct ProcessRunData {
    // 1 when made, 0 once the thread has begun, 2 when the command could not be run. A command that the shell doesn't
    // know was run: its exit code is 127.
    int status = 1;
    int exitCode = -1;  // 0 to 255 once the command has exited by itself
    LStringLongTemplate<char> commandLine;
    LSignalObject doneSignal;
    LSignalObject releaseSignal;

    void Release() {
        const LLockObjectGuard guard(releasing);
        releaseSignal.Signal();
    }
    LLockObject releasing;  // held while the signal is set: it is deleted with the data
};

// The thread's entry, in the form of pthread_create. The command reads an input that ends at once.
void* ProcessRunThreadCallback(void* data);
