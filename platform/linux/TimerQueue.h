// TimerQueue: all armed timer sources, ordered by deadline, and the one timerfd that wakes the pool for the earliest.
//
// One timerfd for all sources, not one each: creating and cancelling a source is then a heap operation of some ten
// nanoseconds instead of several system calls, and a thousand schedules cost a thousand small objects, not descriptors.
// The timerfd is armed for the next deadline before a handler is called, so a handler that blocks delays no other
// source. A cancelled earliest source leaves the timerfd armed: one wake-up for nothing is cheaper than a call per
// cancel. Immortal. All functions from any thread.
#pragma once

#include "EventPool.h"

#include <bsd/LMutex.h>
#include <dispatch/dispatch.h>

#include <atomic>
#include <cstdint>
#include <vector>

// A timer source. Everything but the reference count is guarded by the queue's lock, except the handler, which is set
// before the source is resumed and then only read.
struct dispatch_source_s {
    std::atomic<uint32_t> references{1};
    uint32_t heapIndex = kNotInHeap;
    dispatch_time_t deadline = DISPATCH_TIME_FOREVER;
    uint64_t intervalNs = DISPATCH_TIME_FOREVER;
    dispatch_block_t handler;
    bool suspended = true;
    bool cancelled = false;
    bool running = false;  // its handler is being called
    bool again = false;    // came due while it ran: one more call

    static constexpr uint32_t kNotInHeap = 0xFFFFFFFF;
};

namespace platform {

class TimerQueue final : private Watcher {
public:
    static TimerQueue& Shared();

    void SetTimer(dispatch_source_s& source, dispatch_time_t start, uint64_t intervalNs);
    void Resume(dispatch_source_s& source);
    void Cancel(dispatch_source_s& source);
    // Its last reference was given back: after this nobody knows the source any more.
    void Forget(dispatch_source_s& source);

    // The earliest deadline; DISPATCH_TIME_FOREVER when nothing is armed.
    uint64_t NextDeadline();
    // Runs the handler of one source that is due on the calling thread; false when none is.
    bool RunOneDue();

private:
    struct Entry {
        uint64_t deadline;
        dispatch_source_s* source;
    };

    TimerQueue();
    void OnReady(uint32_t events) override;
    dispatch_source_s* TakeDue() L_REQUIRES(lock);
    void RunHandler(dispatch_source_s& source);
    void ArmTimer() L_REQUIRES(lock);

    void Insert(dispatch_source_s& source) L_REQUIRES(lock);
    void Erase(dispatch_source_s& source) L_REQUIRES(lock);
    void Place(uint32_t index, Entry entry) L_REQUIRES(lock);
    void SiftUp(uint32_t index, Entry entry) L_REQUIRES(lock);
    void SiftDown(uint32_t index, Entry entry) L_REQUIRES(lock);

    Descriptor timer;

    LMutex lock;
    std::vector<Entry> heap L_GUARDED_BY(lock);  // four children per node: shallower than a binary heap
    uint64_t armedFor L_GUARDED_BY(lock) = DISPATCH_TIME_FOREVER;
};

}  // namespace platform
