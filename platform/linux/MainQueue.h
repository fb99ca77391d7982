// MainQueue: the blocks of the main queue, and the EventSet on which the main thread waits while it serves them.
// Besides the blocks' own eventfd the set holds descriptors whose events belong to the main thread (listeners, reopen
// requests, connections whose replies go to the main queue): it reads those itself, with no hand-off. Immortal.
#pragma once

#include "EventSet.h"

#include <bsd/LMutex.h>

#include <atomic>
#include <deque>
#include <functional>

namespace platform {

class MainQueue final : private Watcher {
public:
    static MainQueue& Shared();

    // Any thread. Blocks run one at a time, in order, inside the exit gate.
    void Async(std::function<void()> block);
    EventSet& Events() { return events; }
    // True while a thread serves the queue: then descriptors armed on Events() are looked at.
    bool IsServed() const { return served.load(std::memory_order_acquire); }
    // True on the thread that serves the queue.
    static bool IsServedByThisThread();
    bool IsEmpty();
    // True once dispatch_main has the main thread.
    bool IsServedForGood() const { return forGood.load(std::memory_order_acquire); }

    // Main thread only.
    [[noreturn]] void Serve();         // the application's loop
    [[noreturn]] void ServeForGood();  // dispatch_main; leaves the exit gate of the handler that called it
    bool Pump(const std::function<bool()>& until, uint32_t timeoutMs);

    // The pump is about to return: called on the main thread, for those who armed descriptors on Events().
    void SetUnservedHook(std::function<void()> hook);

private:
    MainQueue();
    void OnReady(uint32_t events) override;
    void ServeOnce(int timeoutMs);

    EventSet events;
    Descriptor wake;
    std::atomic<bool> served{false};
    std::atomic<bool> forGood{false};

    LMutex lock;
    std::deque<std::function<void()>> blocks L_GUARDED_BY(lock);
    std::function<void()> unservedHook L_GUARDED_BY(lock);
};

}  // namespace platform
