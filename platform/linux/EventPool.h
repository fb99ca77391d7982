// EventPool: the threads of the global queue. They wait together on one EventSet; the thread that an event wakes does
// the work itself. Whenever the last waiting thread takes an event, another thread is started, so that a handler that
// blocks delays nobody (up to kMaxThreads); threads beyond a few spare ones end when they have nothing to do. No thread
// exists before the first use. Immortal. All functions from any thread.
#pragma once

#include "EventSet.h"

#include <bsd/LMutex.h>

#include <atomic>
#include <deque>
#include <functional>

namespace platform {

class EventPool final : private Watcher {
public:
    static EventPool& Shared();

    // The set that the threads wait on. Registering starts the first thread.
    EventSet& Events() {
        EnsureThread();
        return events;
    }
    // A second set for the interest "writable", so that a descriptor can be armed for both directions independently.
    EventSet& WriteEvents() {
        EnsureThread();
        return writeEvents;
    }

    // Runs `block` on a thread of the pool, outside the exit gate: each handler that it calls enters by itself, so that
    // none starts once the gate is closed. Blocks start in order; several run side by side.
    void Submit(std::function<void()> block);

    // Test seam, before the first use: no thread is started, the caller's is the pool's only one and works when it
    // calls RunOne. That makes what connections do the same each time.
    void RunByHand() { threads = 1; }
    // Does the work of one ready event on the calling thread; false when none is ready.
    bool RunOne();

private:
    static constexpr int kMaxThreads = 64;
    static constexpr int kSpareThreads = 4;

    // Passes events of writeEvents on to their watchers.
    class WriteRelay final : public Watcher {
    public:
        explicit WriteRelay(EventPool& owner) : pool(owner) {}
        void OnReady(uint32_t) override;

    private:
        EventPool& pool;
    };

    EventPool();
    void OnReady(uint32_t events) override;  // blocks were submitted
    bool TakeBlock(std::function<void()>& block);
    void EnsureThread();
    bool StartThread();
    void Work();

    EventSet events;
    EventSet writeEvents;
    WriteRelay writeRelay;
    Descriptor wake;  // an eventfd, readable while blocks wait

    std::atomic<int> threads{0};
    std::atomic<int> waiting{0};

    LMutex lock;
    std::deque<std::function<void()>> blocks L_GUARDED_BY(lock);
};

}  // namespace platform
