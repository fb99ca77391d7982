#include "threads/LThread.h"

#include <mach/thread_policy.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

LThread::~LThread() {
    StopThreadNow();
    if (!isJoinable) return;
    // On the thread itself, which goes on without the object.
    ::pthread_detach(thread);
    *pIsGone = true;
}

void LThread::Start(int priority) {
    const LLockObjectGuard guard(startLock);
    if (isJoinable) {
        if (running) return;
        ::pthread_join(thread, nullptr);
        isJoinable = false;
    }
    isJoinable = Begin(priority, _ThreadCallback, false);
}

bool LThread::Begin(int priority, void* (*entry)(void*), bool detached) {
    // A thread that can't be told to stop would never end.
    if (stopSignal.ReadDescriptor() < 0 || finishedSignal.ReadDescriptor() < 0 || startedSignal.ReadDescriptor() < 0)
        return false;
    stopSignal.Reset();
    finishedSignal.Reset();
    startedSignal.Reset();
    running = true;
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setdetachstate(&attributes, detached ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE);
    const bool isMade = ::pthread_create(&thread, &attributes, entry, this) == 0;
    ::pthread_attr_destroy(&attributes);
    if (!isMade) return false;
    while (!startedSignal.IsSignaled() && ProcessWaitSignal(startedSignal, kSignalNoTimeOut) == waitTimedOut) continue;
    SetPriority(priority);
    return true;
}

// The lock is free while this waits: the body may be about to ask for its own start, which does nothing.
void LThread::StopThreadNow() {
    stopSignal.Signal();
    pthread_t joined;
    {
        const LLockObjectGuard guard(startLock);
        if (!isJoinable) return;
        joined = thread;
    }
    if (::pthread_equal(joined, ::pthread_self())) return;
    ::pthread_join(joined, nullptr);
    const LLockObjectGuard guard(startLock);
    isJoinable = false;
}

void LThread::SetPriority(int priority) {
    const uint32_t number = port;
    if (priority == kTimeConstraintPriority) {
        thread_time_constraint_policy policy;
        ::thread_policy_get(number, THREAD_TIME_CONSTRAINT_POLICY, &policy);
        ::thread_policy_set(number, THREAD_TIME_CONSTRAINT_POLICY, policy);
    } else {
        ::thread_priority_set(number, priority);
    }
}

bool LThread::ProcessWait(unsigned int milliseconds) {
    using namespace std::chrono;
    const auto end = steady_clock::now() + std::chrono::milliseconds(milliseconds);
    for (unsigned int left = milliseconds;;) {
        pollfd waited[] = {LPollFor(stopSignal)};
        const int ready = LPoll(waited, left);
        if (ready >= 0 || errno != EINTR) return ready > 0;
        if (milliseconds == kSignalNoTimeOut) continue;
        const auto rest = ceil<std::chrono::milliseconds>(end - steady_clock::now()).count();
        left = static_cast<unsigned int>(std::max<int64_t>(rest, 0));
    }
}

int LThread::ProcessWaitSignal(LSignalObjectRef object, unsigned int timeoutMs) {
    pollfd waited[] = {LPollFor(stopSignal), LPollFor(object)};
    if (LPoll(waited, timeoutMs) < 1) return waitTimedOut;
    return waited[0].revents ? waitStopped : waitSet;
}

int LThread::ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int timeoutMs) {
    group.Add(stopSignal);
    const int ready = group.SelectReady(stopSignal, timeoutMs);
    if (ready < 1) return waitTimedOut;
    return stopSignal.IsSignaled() ? waitStopped : waitSet;
}

bool LThread::ThreadCallback() {
    bool isGone = false;
    pIsGone = &isGone;
    port = ::mach_thread_self();
    startedSignal.Signal();
    ThreadFunction();
    if (isGone) return false;
    running = false;
    port = kNoPort;
    return true;
}

void* LThread::_ThreadCallback(void* argument) {
    auto* const self = static_cast<LThread*>(argument);
    if (self->ThreadCallback()) self->finishedSignal.Signal();
    return nullptr;
}
