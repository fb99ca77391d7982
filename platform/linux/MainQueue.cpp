#include "MainQueue.h"

#include "Clock.h"
#include "EventPool.h"
#include "ExitGate.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

namespace platform {

namespace {
thread_local bool serving = false;
}

MainQueue& MainQueue::Shared() {
    static MainQueue& queue = *new MainQueue;
    return queue;
}

MainQueue::MainQueue()
    : wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      watchTimer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    if (wake && watchTimer && events.AddLasting(wake.Get(), EPOLLIN, *this)) return;
    std::perror("main queue");
    std::abort();
}

void MainQueue::Async(std::function<void()> block) {
    LMutexLock guard(lock);
    blocks.push_back(std::move(block));
    if (blocks.size() == 1) eventfd_write(wake.Get(), 1);
}

void MainQueue::OnReady(uint32_t) {
    std::function<void()> block;
    {
        LMutexLock guard(lock);
        if (!blocks.empty()) {
            block = std::move(blocks.front());
            blocks.pop_front();
        }
        if (blocks.empty()) {
            eventfd_t count;
            eventfd_read(wake.Get(), &count);
        }
    }
    if (!block) return;
    ExitGatePassage passage;
    block();
}

void MainQueue::ServeOnce(int timeoutMs) {
    Rest();
    const EventSet::Ready ready = events.Wait(timeoutMs);
    Work();
    if (ready) ready.Handle();
}

bool MainQueue::IsServedByThisThread() {
    return serving;
}

bool MainQueue::IsEmpty() {
    LMutexLock guard(lock);
    return blocks.empty();
}

void MainQueue::Serve() {
    serving = true;
    served.store(true);
    for (;;) ServeOnce(-1);
}

void MainQueue::ServeForGood() {
    forGood.store(true, std::memory_order_release);
    LeaveExitGateForGood();
    Serve();
}

bool MainQueue::Pump(const std::function<bool()>& until, uint32_t timeoutMs) {
    const uint64_t start = CurrentClock().MonotonicNs();
    const bool outermost = !served.exchange(true);
    serving = true;
    bool reached = until && until();
    while (!reached) {
        int waitMs = -1;
        if (timeoutMs != 0xFFFFFFFF) {
            const uint64_t passedMs = (CurrentClock().MonotonicNs() - start) / 1'000'000;
            if (passedMs >= timeoutMs) break;
            waitMs = static_cast<int>(std::min<uint64_t>(timeoutMs - passedMs, 0x7FFFFFFF));
        }
        ServeOnce(waitMs);
        reached = until && until();
    }
    if (outermost) {
        serving = false;
        served.store(false);
        Evict();
    }
    return reached;
}

// --- guests and the watch --------------------------------------------------------------------------------------------
//
// All of it is sequentially consistent. A guest that comes and a main thread that begins to work each write first
// (`guests`, `turn`) and then start the watch: one of them sees the other, so that no guest is ever left with a main
// thread at work and no watch. Starting it twice is starting it once: `watched` admits one.

void MainQueue::Rest() {
    turn.fetch_add(turn.load(std::memory_order_relaxed) & 1);
    if (held.load(std::memory_order_relaxed)) held.store(false);
}

void MainQueue::Work() {
    turn.fetch_add(1);
    if (guests.load() > 0) StartWatch();
}

void MainQueue::AddGuest() {
    guests.fetch_add(1);
    StartWatch();
}

void MainQueue::StartWatch() {
    if (watched.load() || EventPool::Shared().IsRunByHand() || watched.exchange(true)) return;
    watchedTurn = turn.load();
    ArmWatch();
}

void MainQueue::ArmWatch() {
    itimerspec setting{};
    setting.it_value.tv_nsec = kPatienceMs * 1'000'000;
    timerfd_settime(watchTimer.Get(), 0, &setting, nullptr);
    const EventSet& set = EventPool::Shared().Events();
    const bool wasKnown = isTimerKnown.exchange(true);
    if (wasKnown ? set.Arm(watchTimer.Get(), EPOLLIN, watch) : set.Add(watchTimer.Get(), EPOLLIN, watch)) return;
    std::perror("epoll_ctl");  // nobody looks after guests from here on; they are only slower to be served
}

// On a thread of the pool, `watched` being set by whoever armed the timer.
void MainQueue::Look() {
    const uint64_t now = turn.load();
    if (guests.load() == 0) {
        watched.store(false);
        if (guests.load() > 0) StartWatch();
        return;
    }
    if (now == watchedTurn && now % 2 == 1) {
        held.store(true);
        watched.store(false);
        Evict();
        return;
    }
    if (now == watchedTurn) {
        watched.store(false);
        if (turn.load() == now || watched.exchange(true)) return;
    }
    watchedTurn = now;
    ArmWatch();
}

// A guest that is registered while this runs either sees that the main thread is not responsive, or is there to be
// moved: both are under that connection's lock.
void MainQueue::Evict() {
    std::function<void()> hook;
    {
        LMutexLock guard(lock);
        hook = evictionHook;
    }
    if (hook) hook();
}

void MainQueue::SetEvictionHook(std::function<void()> hook) {
    LMutexLock guard(lock);
    evictionHook = std::move(hook);
}

}  // namespace platform
