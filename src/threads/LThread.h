// LThread: a worker thread whose subclass supplies the body, and at the same time the process interface by which the
// body waits: every wait in it ends as soon as the thread is asked to stop. Stopping is cooperative.
//
// Life. Idle, running (from Start until the body returns), finished; Start begins a run out of the other two. A body
// that was started must return after a stop request: destruction waits for it without limit.
//
// Every concrete class calls StopThreadNow in its own destructor, first of all: once that has run, the body's object is
// gone. The destructor here calls it again, for a body that never was.
//
// Start, StopThreadSoon, IsToStop: any thread. The waits: the body's thread. Destruction: any thread; on the thread's
// own, it goes on by itself.
#pragma once

#include "threads/LLockObject.h"
#include "threads/LProcessInterface.h"

#include <atomic>
#include <cstdint>
#include <pthread.h>

class LThread : public LProcessInterface {
public:
    // The priority that asks for real-time scheduling.
    static constexpr int kTimeConstraintPriority = 91;
    static constexpr uint32_t kNoPort = 0xFFFFFFFF;

    LThread() = default;
    explicit LThread(const char* /*name*/) {}
    virtual ~LThread();
    LThread(const LThread&) = delete;
    LThread& operator=(const LThread&) = delete;

    // Runs the body on a new thread, unless one is running; takes back a stop request that came before. Returns once
    // the thread has begun, or a stop request came. Nothing tells that a thread can't be made: it counts as running,
    // its body never runs, and the next Start tries again.
    void Start(int priority);
    void StopThreadSoon() { stopSignal.Signal(); }
    // A request: Linux schedules as it likes (mach/thread_policy.h).
    void SetPriority(int priority);

    bool IsRunning() const { return running; }
    uint32_t Port() const { return port; }  // the running thread's number; kNoPort without one

    bool IsToStop() override { return stopSignal.IsSignaled(); }
    // Goes on after an interruption.
    bool ProcessWait(unsigned int milliseconds) override;
    // A stop request wins over an object that is set, too. waitTimedOut also for a wait that was interrupted or failed.
    int ProcessWaitSignal(LSignalObjectRef object, unsigned int timeoutMs) override;
    // Adds the thread's stop signal to the group, where it stays and takes a place; afterwards the group holds its
    // ready members only.
    int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int timeoutMs) override;

    // The body, run on the new thread. No exception may leave it.
    virtual void ThreadFunction() = 0;

protected:
    // Asks the thread to stop and waits until it has ended; on the thread itself it only asks. Does nothing for an idle
    // one. By one thread at a time, and not beside a Start by another one.
    void StopThreadNow();

    // The body's wrapper, on the new thread. False when the body has destroyed the object.
    bool ThreadCallback();

    // For those who make the thread by themselves: begins a run with `entry`; false when that can't be.
    bool Begin(int priority, void* (*entry)(void*), bool detached);

    LSignalObject stopSignal;
    LSignalObject finishedSignal;  // the body has returned
    LSignalObject startedSignal;   // the thread's first act
    LLockObject startLock;         // held through Start
    pthread_t thread{};            // under startLock

private:
    static void* _ThreadCallback(void* argument);

    std::atomic<bool> running{false};
    std::atomic<uint32_t> port{kNoPort};
    bool isJoinable = false;  // under startLock: somebody has to join the thread
    bool* pIsGone = nullptr;  // the thread's own: to be set by a destruction in the body
};
