// MainQueue: the blocks of the main queue, and the EventSet on which the main thread waits while it serves them.
// Besides the blocks' own eventfd the set holds descriptors whose events belong to the main thread (listeners, reopen
// requests, connections whose replies go to the main queue): it reads those itself, with no hand-off. Immortal.
//
// Guests are connections registered on the set that the pool can serve just as well. They are there while the main
// thread is responsive; when it stops serving, or stays in one handler for kPatienceMs, the eviction hook moves them.
// What notices the latter is a watch: a timer that runs only while there are guests and the main thread is working, and
// looks whether `turn` still stands at the same odd number. Who makes the main thread work, or a guest of a connection,
// starts the watch; it ends by itself once the main thread has been at rest for a period.
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
    // True on the thread that serves the queue.
    static bool IsServedByThisThread();
    bool IsEmpty();
    // True once dispatch_main has the main thread.
    bool IsServedForGood() const { return forGood.load(std::memory_order_acquire); }

    // Whether the main thread serves the queue and isn't held up: then a guest may be registered on Events().
    bool IsResponsive() const { return served.load() && !held.load(); }
    // Around the registration of a guest.
    void AddGuest();
    void RemoveGuest() { guests.fetch_sub(1); }
    // Moves all guests elsewhere. Called on the main thread or on one of the pool, after IsResponsive has become false.
    void SetEvictionHook(std::function<void()> hook);

    // Main thread only.
    [[noreturn]] void Serve();         // the application's loop
    [[noreturn]] void ServeForGood();  // dispatch_main; leaves the exit gate of the handler that called it
    bool Pump(const std::function<bool()>& until, uint32_t timeoutMs);

private:
    static constexpr long kPatienceMs = 10;

    class WatchTimer final : public Watcher {
    public:
        explicit WatchTimer(MainQueue& owner) : queue(owner) {}
        void OnReady(uint32_t) override { queue.Look(); }

    private:
        MainQueue& queue;
    };

    MainQueue();
    void OnReady(uint32_t events) override;
    void ServeOnce(int timeoutMs);
    void Rest();
    void Work();
    void StartWatch();
    void ArmWatch();
    void Look();
    void Evict();

    EventSet events;
    Descriptor wake;
    std::atomic<bool> served{false};
    std::atomic<bool> forGood{false};

    // The watch. `turn` is the main thread's: odd while it works, even while it waits. `watchedTurn` and the timer
    // belong to whoever set `watched`, and pass to the thread that the timer wakes.
    std::atomic<uint64_t> turn{1};
    std::atomic<bool> held{false};
    std::atomic<int> guests{0};
    std::atomic<bool> watched{false};
    std::atomic<uint64_t> watchedTurn{0};
    std::atomic<bool> isTimerKnown{false};
    Descriptor watchTimer;
    WatchTimer watch{*this};

    LMutex lock;
    std::deque<std::function<void()>> blocks L_GUARDED_BY(lock);
    std::function<void()> evictionHook L_GUARDED_BY(lock);
};

}  // namespace platform
