#include "EventPool.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <pthread.h>
#include <sys/eventfd.h>

namespace platform {

EventPool& EventPool::Shared() {
    static EventPool& pool = *new EventPool;
    return pool;
}

EventPool::EventPool() : writeRelay(*this), wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (wake && events.Add(wake.Get(), EPOLLIN, *this) && events.Add(writeEvents.Fd(), EPOLLIN, writeRelay)) return;
    std::perror("event pool");
    std::abort();
}

void EventPool::EnsureThread() {
    if (threads.load(std::memory_order_relaxed) != 0 || StartThread()) return;
    std::fprintf(stderr, "event pool: no thread can be started\n");  // nothing would ever be handled, not even the end
    std::abort();
}

// All signals stay blocked in the pool's threads: they belong to the main thread and to the layer's signalfd.
bool EventPool::StartThread() {
    if (threads.fetch_add(1) >= kMaxThreads) {
        threads.fetch_sub(1);
        return false;
    }
    sigset_t all, old;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &old);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    const int error = pthread_create(
        &thread, &attributes,
        [](void* self) -> void* {
            static_cast<EventPool*>(self)->Work();
            return nullptr;
        },
        this);
    pthread_attr_destroy(&attributes);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    if (error) threads.fetch_sub(1);
    return error == 0;
}

void EventPool::Work() {
    for (;;) {
        waiting.fetch_add(1);
        uint32_t ready = 0;
        Watcher* watcher = events.Wait(-1, ready);
        const bool lastWaiter = waiting.fetch_sub(1) == 1;
        if (!watcher) continue;
        if (lastWaiter) StartThread();
        watcher->OnReady(ready);
        if (waiting.load() >= kSpareThreads) break;
    }
    threads.fetch_sub(1);
}

bool EventPool::RunOne() {
    uint32_t ready = 0;
    Watcher* watcher = events.Wait(0, ready);
    if (watcher) watcher->OnReady(ready);
    return watcher != nullptr;
}

void EventPool::Submit(std::function<void()> block) {
    EnsureThread();
    LMutexLock guard(lock);
    blocks.push_back(std::move(block));
    if (blocks.size() == 1) eventfd_write(wake.Get(), 1);
}

// The eventfd stays readable until the last block is taken, so that each armed round wakes one more thread.
bool EventPool::TakeBlock(std::function<void()>& block) {
    LMutexLock guard(lock);
    if (blocks.empty()) return false;
    block = std::move(blocks.front());
    blocks.pop_front();
    if (!blocks.empty()) return true;
    eventfd_t count;
    eventfd_read(wake.Get(), &count);
    return true;
}

void EventPool::OnReady(uint32_t) {
    std::function<void()> block;
    bool taken = TakeBlock(block);
    events.Arm(wake.Get(), EPOLLIN, *this);
    for (; taken; taken = TakeBlock(block)) {
        block();
        block = nullptr;
    }
}

void EventPool::WriteRelay::OnReady(uint32_t) {
    uint32_t ready = 0;
    Watcher* watcher = pool.writeEvents.Wait(0, ready);
    pool.events.Arm(pool.writeEvents.Fd(), EPOLLIN, *this);
    if (watcher) watcher->OnReady(ready);
}

}  // namespace platform
