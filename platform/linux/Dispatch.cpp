// The C names of dispatch, over the pool, the main queue and the timer queue.
#include "Clock.h"
#include "EventPool.h"
#include "ExitGate.h"
#include "MainQueue.h"
#include "TimerQueue.h"

#include <dispatch/dispatch.h>
#include <dispatch/pump.h>

#include <memory>

struct dispatch_queue_s {};
struct dispatch_source_type_s {};

namespace {
dispatch_queue_s mainQueue, globalQueue;
const dispatch_source_type_s timerType;

class GlobalBlock final : public platform::PoolJob {
public:
    explicit GlobalBlock(dispatch_block_t toRun) : block(std::move(toRun)) {}

    void Run() override {
        auto& pool = platform::EventPool::Shared();
        if (!pool.TakePlace()) return pool.Postpone(*this);
        {
            const std::unique_ptr<GlobalBlock> self(this);
            platform::ExitGatePassage passage;
            block();
        }
        pool.GivePlace();
    }

private:
    const dispatch_block_t block;
};
}  // namespace

const dispatch_source_type_s* const DISPATCH_SOURCE_TYPE_TIMER = &timerType;

dispatch_queue_t dispatch_get_main_queue() {
    return &mainQueue;
}

dispatch_queue_t dispatch_get_global_queue(long, unsigned long) {
    return &globalQueue;
}

void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) {
    if (queue == &mainQueue)
        platform::MainQueue::Shared().Async(std::move(block));
    else
        platform::EventPool::Shared().Submit(*std::make_unique<GlobalBlock>(std::move(block)).release());
}

void dispatch_main() {
    platform::MainQueue::Shared().ServeForGood();
}

bool dispatch_pump_main(const std::function<bool()>& until, uint32_t timeoutMs) {
    return platform::MainQueue::Shared().Pump(until, timeoutMs);
}

dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta) {
    if (when == DISPATCH_TIME_FOREVER) return when;
    const dispatch_time_t from = when == DISPATCH_TIME_NOW ? platform::CurrentClock().BootNs() : when;
    if (delta < 0) {
        const auto back = ~static_cast<uint64_t>(delta) + 1;
        return from > back ? from - back : 1;
    }
    dispatch_time_t sum;
    return __builtin_add_overflow(from, static_cast<uint64_t>(delta), &sum) ? DISPATCH_TIME_FOREVER : sum;
}

dispatch_source_t dispatch_source_create(const dispatch_source_type_s* type, uintptr_t, unsigned long,
                                         dispatch_queue_t queue) {
    if (type != &timerType || queue == &mainQueue) return nullptr;
    return new dispatch_source_s;
}

void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start, uint64_t interval, uint64_t) {
    platform::TimerQueue::Shared().SetTimer(*source, start, interval);
}

void dispatch_source_set_event_handler(dispatch_source_t source, dispatch_block_t handler) {
    source->handler = std::move(handler);
}

void dispatch_resume(dispatch_source_t source) {
    platform::TimerQueue::Shared().Resume(*source);
}

void dispatch_source_cancel(dispatch_source_t source) {
    platform::TimerQueue::Shared().Cancel(*source);
}

void dispatch_retain(dispatch_source_t source) {
    source->references.fetch_add(1, std::memory_order_relaxed);
}

void dispatch_release(dispatch_source_t source) {
    if (source->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    platform::TimerQueue::Shared().Forget(*source);
    delete source;
}
