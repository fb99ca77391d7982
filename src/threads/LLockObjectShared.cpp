#include "threads/LLockObjectShared.h"

void LLockObjectShared::LockExclusive() {
    mutex.lock();
    while (readers > 0) {
        mutex.unlock();
        readersGone.WaitSignal(kSignalNoTimeOut);
        mutex.lock();
    }
}

void LLockObjectShared::LockShared() {
    mutex.lock();
    AddReader();
}

void LLockObjectShared::AddReader() {
    readersGone.Reset();
    readers++;
    mutex.unlock();
}

void LLockObjectShared::UnlockShared() {
    if (readers.fetch_sub(1) == 1) readersGone.Signal();
}

void LLockObjectShared::UpgradeLock() {
    mutex.lock();
    // As every reader that leaves: a writer that waits for the last one must hear of it, and then waits for the mutex.
    UnlockShared();
    // With the mutex, so that nobody else comes in; the others leave without it.
    while (readers > 0) readersGone.WaitSignal(kSignalNoTimeOut);
}

void LLockObjectShared::DowngradeLock() {
    AddReader();
}
