#include "EventPool.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <memory>
#include <pthread.h>
#include <sys/eventfd.h>

namespace platform {

EventPool& EventPool::Shared() {
    static EventPool& pool = *new EventPool;
    return pool;
}

EventPool::EventPool() : wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (wake && events.AddLasting(wake.Get(), EPOLLIN | EPOLLET, *this)) return;
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

// A thread waits for good only after an idle second; those beyond the spare ones end then. A spare one that has worked
// leaves its place to a fresh one: what a thread keeps for its next allocations pins memory all over the heap and goes
// with it. The fresh ones, after another idle second, give back what the work took. The kernel wakes who began to wait
// last: the others are the ones that idle.
void EventPool::Work() {
    for (bool isFresh = true;;) {
        const bool isSpare = waiting.fetch_add(1) < kSpareThreads;
        const EventSet::Ready ready = events.Wait(isSpare && !hasWorked.load() ? -1 : kIdleMs);
        const int others = waiting.fetch_sub(1) - 1;
        if (ready) {
            if (others == 0) StartThread();
            isFresh = false;
            hasWorked.store(true, std::memory_order_relaxed);
            ready.Handle();
        } else if (others >= kSpareThreads || (!isFresh && StartThread())) {
            break;
        } else if (hasWorked.exchange(false)) {
            malloc_trim(0);
        }
    }
    threads.fetch_sub(1);
}

bool EventPool::RunOne() {
    const EventSet::Ready ready = events.Wait(0);
    if (ready) ready.Handle();
    return static_cast<bool>(ready);
}

void EventPool::WakeOne() const {
    eventfd_write(wake.Get(), 1);
}

// Who is woken finds the lock free.
void EventPool::Submit(PoolJob& job) {
    EnsureThread();
    bool isFirst;
    {
        LMutexLock guard(lock);
        isFirst = jobs.IsEmpty();
        jobs.Add(job);
    }
    if (isFirst) WakeOne();
}

void EventPool::Submit(std::function<void()> block) {
    class Block final : public PoolJob {
    public:
        explicit Block(std::function<void()> toRun) : block(std::move(toRun)) {}
        void Run() override {
            const std::unique_ptr<Block> self(this);
            block();
        }

    private:
        const std::function<void()> block;
    };
    Submit(*std::make_unique<Block>(std::move(block)).release());
}

// One job for each event, so that one that submits itself again waits behind everything else that is ready. Who takes
// one wakes a thread for the next.
void EventPool::OnReady(uint32_t) {
    PoolJob* job;
    bool areMore;
    {
        LMutexLock guard(lock);
        job = jobs.Take();
        areMore = !jobs.IsEmpty();
    }
    if (areMore) WakeOne();
    if (job) job->Run();
}

bool EventPool::TakePlace() {
    int taken = places.load(std::memory_order_relaxed);
    do {
        if (taken >= kPlaces) return false;
    } while (!places.compare_exchange_weak(taken, taken + 1));
    return true;
}

// Either who gives its place back sees what is postponed, or who postpones sees the place.
void EventPool::GivePlace() {
    places.fetch_sub(1);
    if (isPostponed.load()) SubmitPostponed();
}

void EventPool::Postpone(PoolJob& job) {
    {
        LMutexLock guard(lock);
        postponed.Add(job);
        isPostponed.store(true);
    }
    if (places.load() < kPlaces) SubmitPostponed();
}

void EventPool::SubmitPostponed() {
    PoolJob* job;
    {
        LMutexLock guard(lock);
        job = postponed.Take();
        isPostponed.store(!postponed.IsEmpty());
    }
    if (job) Submit(*job);
}

}  // namespace platform
