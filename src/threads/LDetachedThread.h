// LDetachedThread: a thread that deletes itself when its body returns. LDetachedThreadsOwner: holds those that are
// alive, and can stop them all. Made with new, listed with the owner (AddThread) and started (StartDetached), in this
// order; from then on the owner or the thread itself deletes it, and nobody else may touch it but through the owner.
// One that was never listed is never deleted.
#pragma once

#include "text/LList.h"
#include "threads/LThread.h"

#include <bsd/LMutex.h>

#include <condition_variable>

class LDetachedThreadsOwner;

class LDetachedThread : public LThread {
public:
    using LThread::LThread;

    // Runs the body on a thread of its own. The owner outlives it. Returns once the thread has begun. When no thread
    // can be made the object stays listed, for StopThreadsNow to delete.
    void StartDetached(LDetachedThreadsOwner& threadsOwner, int priority);

    LDetachedThread* pNext = nullptr;  // the owner's list

private:
    friend class LDetachedThreadsOwner;
    static void* _ThreadCallback(void* thread);
    bool IsCallers();
    void WaitForEnd();

    LDetachedThreadsOwner* pOwner = nullptr;
    bool isBegun = false;  // under startLock
};

// Any thread.
class LDetachedThreadsOwner {
public:
    LDetachedThreadsOwner() = default;
    ~LDetachedThreadsOwner() { StopThreadsNow(); }
    LDetachedThreadsOwner(const LDetachedThreadsOwner&) = delete;
    LDetachedThreadsOwner& operator=(const LDetachedThreadsOwner&) = delete;

    void AddThread(LDetachedThread* thread);
    // Asks all to stop.
    void StopThreadsSoon();
    // Asks all to stop; returns when each has ended and is deleted. From one of their bodies: all but that one.
    void StopThreadsNow();
    // Asks a thread that is still listed to stop, and deletes it when it has ended; does nothing for another one. From
    // its own body it only asks.
    void Destruct(LDetachedThread* thread);

private:
    friend class LDetachedThread;
    LListIterator<LDetachedThread> Find(const LDetachedThread* thread) const L_REQUIRES(lock);
    void StopAndDelete(LDetachedThread* thread);
    LDetachedThread* TakeOne();
    void End(LDetachedThread* thread);

    LMutex lock;
    LList<LDetachedThread> threads L_GUARDED_BY(lock);
    int inside L_GUARDED_BY(lock) = 0;  // threads that have ended and are about to leave
    std::condition_variable left;
};
