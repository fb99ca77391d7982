// EventPool: the threads of the global queue. They wait together on one EventSet; the thread that an event wakes does
// the work itself. Whenever the last waiting thread takes an event, another thread is started, so that a handler that
// blocks delays nobody (up to kMaxThreads); after a second or two without work only two fresh threads are left, and
// memory is given back. No thread exists before the first use. Immortal. All functions from any thread.
//
// Whoever runs handlers that strangers may cause (connections, blocks of the global queue) takes a place first. There
// are fewer places than threads: however many of those handlers hang, timers and signals find a thread.
#pragma once

#include "EventSet.h"

#include <bsd/LMutex.h>

#include <atomic>
#include <functional>

namespace platform {

// Work for a thread of the pool. Submitting one allocates nothing; it may be submitted again once it runs.
class PoolJob {
public:
    virtual ~PoolJob() = default;
    virtual void Run() = 0;

private:
    friend class PoolJobs;
    PoolJob* next = nullptr;
};

class PoolJobs {
public:
    bool IsEmpty() const { return !first; }
    void Add(PoolJob& job) {
        job.next = nullptr;
        (first ? last->next : first) = &job;
        last = &job;
    }
    PoolJob* Take() {
        PoolJob* const job = first;
        if (job) first = job->next;
        return job;
    }

private:
    PoolJob* first = nullptr;
    PoolJob* last = nullptr;
};

class EventPool final : private Watcher {
public:
    static EventPool& Shared();

    // The set that the threads wait on. Registering starts the first thread.
    EventSet& Events() {
        EnsureThread();
        return events;
    }
    // Runs `job` on a thread of the pool, outside the exit gate: each handler that it calls enters by itself, so that
    // none starts once the gate is closed. Jobs start in order; several run side by side.
    void Submit(PoolJob& job);
    void Submit(std::function<void()> block);

    // False when all places are taken: then what was to be done goes to Postpone.
    bool TakePlace();
    void GivePlace();
    // Submits the job once a place is free, those that came earlier first. It takes its place by itself.
    void Postpone(PoolJob& job);

    // Test seam, before the first use: no thread is started, the caller's is the pool's only one and works when it
    // calls RunOne. That makes what connections do the same each time.
    void RunByHand() {
        threads = 1;
        byHand = true;
    }
    bool IsRunByHand() const { return byHand; }
    // Does the work of one ready event on the calling thread; false when none is ready.
    bool RunOne();

private:
    static constexpr int kMaxThreads = 64;
    static constexpr int kPlaces = 48;
    static constexpr int kSpareThreads = 2;
    static constexpr int kIdleMs = 1'000;

    EventPool();
    void OnReady(uint32_t events) override;  // jobs were submitted
    void SubmitPostponed();
    void WakeOne() const;
    void EnsureThread();
    bool StartThread();
    void Work();

    EventSet events;
    Descriptor wake;  // an eventfd; each write wakes a thread
    bool byHand = false;

    std::atomic<int> threads{0};
    std::atomic<int> waiting{0};
    std::atomic<bool> hasWorked{false};  // since memory was last given back
    std::atomic<int> places{0};          // taken
    std::atomic<bool> isPostponed{false};

    LMutex lock;
    PoolJobs jobs L_GUARDED_BY(lock);
    PoolJobs postponed L_GUARDED_BY(lock);
};

}  // namespace platform
