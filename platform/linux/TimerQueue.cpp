#include "TimerQueue.h"

#include "Clock.h"
#include "ExitGate.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sys/timerfd.h>

namespace platform {

namespace {
constexpr uint32_t kArity = 4;

// The first moment of the grid deadline + k * interval that lies after now; never, where that passes the range.
uint64_t NextOnGrid(uint64_t deadline, uint64_t intervalNs, uint64_t now) {
    const uint64_t periods = (now - deadline) / intervalNs + 1;
    uint64_t span = 0, next = 0;
    if (__builtin_mul_overflow(periods, intervalNs, &span) || __builtin_add_overflow(deadline, span, &next))
        return DISPATCH_TIME_FOREVER;
    return next;
}

// A source whose last reference is just being given back can't be had any more: who gives it back will take it off the
// heap.
bool RetainUnlessGoing(dispatch_source_s& source) {
    uint32_t count = source.references.load(std::memory_order_relaxed);
    while (count > 0)
        if (source.references.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) return true;
    return false;
}

}  // namespace

TimerQueue& TimerQueue::Shared() {
    static TimerQueue& queue = *new TimerQueue;
    return queue;
}

TimerQueue::TimerQueue() : timer(timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK)) {
    if (timer && EventPool::Shared().Events().Add(timer.Get(), EPOLLIN, *this)) return;
    std::perror("timerfd");  // a scheduler without a timer must not look as if it worked
    std::abort();
}

void TimerQueue::SetTimer(dispatch_source_s& source, dispatch_time_t start, uint64_t intervalNs) {
    LMutexLock guard(lock);
    Erase(source);
    source.deadline = start == DISPATCH_TIME_NOW ? CurrentClock().BootNs() : start;
    source.intervalNs = intervalNs == 0 ? 1 : intervalNs;
    Insert(source);
}

void TimerQueue::Resume(dispatch_source_s& source) {
    LMutexLock guard(lock);
    source.suspended = false;
    Insert(source);
}

void TimerQueue::Cancel(dispatch_source_s& source) {
    LMutexLock guard(lock);
    source.cancelled = true;
    source.again = false;
    Erase(source);
}

// Who cancelled it had a reference, whose return made that known here: nothing is left to do then.
void TimerQueue::Forget(dispatch_source_s& source) {
    if (!source.cancelled) Cancel(source);
}

uint64_t TimerQueue::NextDeadline() {
    LMutexLock guard(lock);
    return heap.empty() ? DISPATCH_TIME_FOREVER : heap.front().deadline;
}

bool TimerQueue::RunOneDue() {
    dispatch_source_s* source;
    {
        LMutexLock guard(lock);
        source = TakeDue();
        ArmTimer();
    }
    if (!source) return false;
    RunHandler(*source);
    return true;
}

void TimerQueue::OnReady(uint32_t) {
    dispatch_source_s* source;
    {
        LMutexLock guard(lock);
        uint64_t expirations;
        if (read(timer.Get(), &expirations, sizeof expirations) > 0) armedFor = DISPATCH_TIME_FOREVER;
        source = TakeDue();
        ArmTimer();
        EventPool::Shared().Events().Arm(timer.Get(), EPOLLIN, *this);
    }
    if (source) RunHandler(*source);
    while (RunOneDue()) {
    }
}

// Takes the earliest source off the heap if it is due, puts it back at its next moment, and gives it with a reference
// when its handler is to be called by the caller.
dispatch_source_s* TimerQueue::TakeDue() {
    const uint64_t now = CurrentClock().BootNs();
    while (!heap.empty() && heap.front().deadline <= now) {
        dispatch_source_s& source = *heap.front().source;
        Erase(source);
        if (!RetainUnlessGoing(source)) continue;
        if (source.intervalNs != DISPATCH_TIME_FOREVER) {
            source.deadline = NextOnGrid(source.deadline, source.intervalNs, now);
            Insert(source);
        }
        if (!source.running) {
            source.running = true;
            return &source;
        }
        source.again = true;
        source.references.fetch_sub(1, std::memory_order_relaxed);  // not the last one: who runs it has one
    }
    return nullptr;
}

void TimerQueue::RunHandler(dispatch_source_s& source) {
    for (;;) {
        {
            ExitGatePassage passage;
            if (source.handler) source.handler();
        }
        LMutexLock guard(lock);
        if (!source.again) {
            source.running = false;
            break;
        }
        source.again = false;
    }
    dispatch_release(&source);
}

// Sets the timerfd to the earliest deadline when it isn't set to that or an earlier moment.
void TimerQueue::ArmTimer() {
    const uint64_t next = heap.empty() ? DISPATCH_TIME_FOREVER : heap.front().deadline;
    if (next >= armedFor || CurrentClock().IsVirtual()) return;
    armedFor = next;
    itimerspec setting{};
    setting.it_value.tv_sec = static_cast<time_t>(next / 1'000'000'000);
    setting.it_value.tv_nsec = static_cast<long>(next % 1'000'000'000);
    if (setting.it_value.tv_sec == 0 && setting.it_value.tv_nsec == 0)
        setting.it_value.tv_nsec = 1;  // zero would disarm
    timerfd_settime(timer.Get(), TFD_TIMER_ABSTIME, &setting, nullptr);
}

// --- the heap ------------------------------------------------------------------------------------------------------

void TimerQueue::Insert(dispatch_source_s& source) {
    if (source.suspended || source.cancelled || source.heapIndex != source.kNotInHeap ||
        source.deadline == DISPATCH_TIME_FOREVER)
        return;
    heap.emplace_back();
    SiftUp(static_cast<uint32_t>(heap.size() - 1), {source.deadline, &source});
    ArmTimer();
}

void TimerQueue::Erase(dispatch_source_s& source) {
    const uint32_t hole = source.heapIndex;
    if (hole == source.kNotInHeap) return;
    source.heapIndex = source.kNotInHeap;
    const Entry last = heap.back();
    heap.pop_back();
    if (hole == heap.size()) return;
    if (hole > 0 && last.deadline < heap[(hole - 1) / kArity].deadline)
        SiftUp(hole, last);
    else
        SiftDown(hole, last);
}

void TimerQueue::Place(uint32_t index, Entry entry) {
    heap[index] = entry;
    entry.source->heapIndex = index;
}

void TimerQueue::SiftUp(uint32_t index, Entry entry) {
    while (index > 0) {
        const uint32_t parent = (index - 1) / kArity;
        if (heap[parent].deadline <= entry.deadline) break;
        Place(index, heap[parent]);
        index = parent;
    }
    Place(index, entry);
}

void TimerQueue::SiftDown(uint32_t index, Entry entry) {
    const auto size = static_cast<uint32_t>(heap.size());
    for (;;) {
        const uint32_t first = index * kArity + 1;
        if (first >= size) break;
        uint32_t least = first;
        for (uint32_t child = first + 1; child < std::min(first + kArity, size); child++)
            if (heap[child].deadline < heap[least].deadline) least = child;
        if (heap[least].deadline >= entry.deadline) break;
        Place(index, heap[least]);
        index = least;
    }
    Place(index, entry);
}

}  // namespace platform
