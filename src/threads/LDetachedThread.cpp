#include "threads/LDetachedThread.h"

// Once the thread runs it may end and delete this object at any time: its end waits for the lock that is held here.
void LDetachedThread::StartDetached(LDetachedThreadsOwner& threadsOwner, int priority) {
    const LLockObjectGuard guard(startLock);
    pOwner = &threadsOwner;
    isBegun = Begin(priority, _ThreadCallback, true);
}

void* LDetachedThread::_ThreadCallback(void* argument) {
    auto* const self = static_cast<LDetachedThread*>(argument);
    self->ThreadCallback();
    { const LLockObjectGuard untilStarted(self->startLock); }
    self->pOwner->End(self);
    return nullptr;
}

bool LDetachedThread::IsCallers() {
    const LLockObjectGuard guard(startLock);
    return isBegun && ::pthread_equal(thread, ::pthread_self());
}

void LDetachedThread::WaitForEnd() {
    {
        const LLockObjectGuard guard(startLock);
        if (!isBegun) return;
    }
    while (!finishedSignal.IsSignaled()) finishedSignal.WaitSignal(kSignalNoTimeOut);
}

void LDetachedThreadsOwner::AddThread(LDetachedThread* thread) {
    LMutexLock guard(lock);
    threads.Add(thread);
}

void LDetachedThreadsOwner::StopThreadsSoon() {
    LMutexLock guard(lock);
    for (LListIterator<LDetachedThread> it(threads); it; it.Next()) it->StopThreadSoon();
}

void LDetachedThreadsOwner::StopThreadsNow() {
    StopThreadsSoon();
    while (LDetachedThread* const thread = TakeOne()) StopAndDelete(thread);
    // Those that took themselves off the list delete themselves.
    LMutexLock guard(lock);
    std::unique_lock waiting(lock.Native(), std::adopt_lock);
    left.wait(waiting, [this]() L_NO_THREAD_SAFETY_ANALYSIS { return inside == 0; });
    waiting.release();
}

// Of one that is off the list.
void LDetachedThreadsOwner::StopAndDelete(LDetachedThread* thread) {
    thread->StopThreadSoon();
    thread->WaitForEnd();
    { LMutexLock untilItHasSignalled(lock); }
    delete thread;
}

// Off the list, so that it is this caller's to delete; null when none but the calling thread is left.
LDetachedThread* LDetachedThreadsOwner::TakeOne() {
    LMutexLock guard(lock);
    LListIterator<LDetachedThread> it(threads);
    while (it && it->IsCallers()) it.Next();
    return threads.Detach(it);
}

LListIterator<LDetachedThread> LDetachedThreadsOwner::Find(const LDetachedThread* thread) const {
    LListIterator<LDetachedThread> it(threads);
    while (it && it.Get() != thread) it.Next();
    return it;
}

void LDetachedThreadsOwner::Destruct(LDetachedThread* thread) {
    {
        LMutexLock guard(lock);
        auto it = Find(thread);
        if (!it) return;
        if (it->IsCallers()) return it->StopThreadSoon();
        threads.Detach(it);
    }
    StopAndDelete(thread);
}

// A thread that has been taken off the list is somebody else's as soon as its finished signal is set. So both happen
// under the lock: afterwards a new thread may be listed at the same address.
void LDetachedThreadsOwner::End(LDetachedThread* thread) {
    bool isListed;
    {
        LMutexLock guard(lock);
        inside++;
        auto it = Find(thread);
        isListed = threads.Detach(it) != nullptr;
        thread->finishedSignal.Signal();
    }
    if (isListed) delete thread;
    LMutexLock guard(lock);
    inside--;
    left.notify_all();
}
