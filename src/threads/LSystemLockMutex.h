// LSystemLockMutex: a lock across processes, known by a short name, and kept by the kernel as a System V semaphore (1:
// free, 0: held). The kernel frees the lock of a process that dies. It serialises processes, not the threads of one,
// and an object is for one thread. The semaphore outlives all its users; nothing here removes it.
#pragma once

#include <sys/types.h>

class LSystemLockMutex {
public:
    // Makes the semaphore or joins the one that is there. Where neither works (no System V IPC here, another user's),
    // the lock can't be taken.
    explicit LSystemLockMutex(const char* name);
    // A lock that is still held stays so until the process ends.
    ~LSystemLockMutex() = default;
    LSystemLockMutex(const LSystemLockMutex&) = delete;
    LSystemLockMutex& operator=(const LSystemLockMutex&) = delete;

    // Tries every 10 ms, at least once; false after `milliseconds`, rounded up to the next 10 (10 for 0), or at once
    // when trying fails for another reason than that somebody holds it.
    bool Lock(unsigned int milliseconds);
    // Waits for as long as it takes. Returns without the lock when a signal handler interrupts the wait, and where
    // there is no semaphore; IsHeld tells.
    void LockForever();
    // Does nothing unless this object holds the lock.
    void Unlock();
    bool IsHeld() const { return isHeld; }

    // The number by which the kernel knows the lock of this name ("UID": 367844708).
    static key_t KeyOfName(const char* name);

private:
    void Attach(key_t key);
    bool Change(int by, int flags);

    int semaphoreSet = -1;
    bool isHeld = false;  // giving back what was never taken would let two in from then on
};
