#include "MainQueue.h"

#include "Clock.h"
#include "ExitGate.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sys/eventfd.h>

namespace platform {

namespace {
thread_local bool serving = false;
}

MainQueue& MainQueue::Shared() {
    static MainQueue& queue = *new MainQueue;
    return queue;
}

MainQueue::MainQueue() : wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (wake && events.Add(wake.Get(), EPOLLIN, *this)) return;
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
    events.Arm(wake.Get(), EPOLLIN, *this);
    if (!block) return;
    ExitGatePassage passage;
    block();
}

void MainQueue::ServeOnce(int timeoutMs) {
    uint32_t ready = 0;
    if (Watcher* watcher = events.Wait(timeoutMs, ready)) watcher->OnReady(ready);
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
    served.store(true, std::memory_order_release);
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
        served.store(false, std::memory_order_release);
        std::function<void()> hook;
        {
            LMutexLock guard(lock);
            hook = unservedHook;
        }
        if (hook) hook();
    }
    return reached;
}

void MainQueue::SetUnservedHook(std::function<void()> hook) {
    LMutexLock guard(lock);
    unservedHook = std::move(hook);
}

}  // namespace platform
