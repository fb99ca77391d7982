// LLockObjectShared: a lock that many readers hold at once, or one writer alone. Not recursive. Readers that keep
// coming can keep a writer waiting. Two readers that both upgrade wait for each other for ever: only one at a time may.
// Any thread; a lock is given back by the thread that took it.
#pragma once

#include "threads/LSignalObject.h"

#include <atomic>
#include <mutex>

class LLockObjectShared {
public:
    LLockObjectShared() = default;
    LLockObjectShared(const LLockObjectShared&) = delete;
    LLockObjectShared& operator=(const LLockObjectShared&) = delete;

    void LockExclusive();
    void UnlockExclusive() { mutex.unlock(); }

    void LockShared();
    void UnlockShared();

    void UpgradeLock();    // a reader becomes the writer
    void DowngradeLock();  // the writer becomes a reader

private:
    void AddReader();

    std::mutex mutex;  // held by the writer, and by anybody for a moment while readers are added
    LSignalObject
        readersGone;  // set when the last reader leaves, perhaps before others came: waiters look at the count
    std::atomic<int> readers{0};  // added under the mutex, taken off without
};
