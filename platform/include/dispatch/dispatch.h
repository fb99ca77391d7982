// Grand Central Dispatch, the subset that this system calls: the main queue, the default-priority global queue and
// timer sources. Blocks are std::function. Handlers of the global queue run on pool threads, several side by side;
// blocks of the main queue run one at a time, in order, on the thread that sits in dispatch_main (or in the
// application's loop). Every handler passes the exit gate (dispatch/exit_gate.h). All functions may be called from any
// thread.
#pragma once

#include <cstdint>
#include <functional>

struct dispatch_queue_s;
struct dispatch_source_s;
using dispatch_queue_t = dispatch_queue_s*;  // immortal, never released
using dispatch_source_t =
    dispatch_source_s*;  // one reference from dispatch_source_create, given back by dispatch_release
using dispatch_block_t = std::function<void()>;
using dispatch_time_t = uint64_t;  // nanoseconds on the clock that timer sources count on (time asleep counts)

struct dispatch_source_type_s;
extern const dispatch_source_type_s* const DISPATCH_SOURCE_TYPE_TIMER;

inline constexpr dispatch_time_t DISPATCH_TIME_NOW = 0;
inline constexpr dispatch_time_t DISPATCH_TIME_FOREVER = ~dispatch_time_t{0};
inline constexpr long DISPATCH_QUEUE_PRIORITY_DEFAULT = 0;

dispatch_queue_t dispatch_get_main_queue();
dispatch_queue_t dispatch_get_global_queue(long priority, unsigned long flags);
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);

// Gives the calling (main) thread over to the main queue for good.
[[noreturn]] void dispatch_main();

// The moment `delta` nanoseconds after `when` (DISPATCH_TIME_NOW: after now), saturating: never before 1, and
// DISPATCH_TIME_FOREVER where the sum passes the range.
dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta);

// A timer source on the global queue, suspended until its first dispatch_resume; null for any other type or queue.
dispatch_source_t dispatch_source_create(const dispatch_source_type_s* type, uintptr_t handle, unsigned long mask,
                                         dispatch_queue_t queue);
// First event at `start`, then every `interval` nanoseconds on the grid start + k * interval (DISPATCH_TIME_FOREVER: no
// repeat). Periods missed while the machine slept come as one event. `leeway` is ignored: events are never early.
void dispatch_source_set_timer(dispatch_source_t source, dispatch_time_t start, uint64_t interval, uint64_t leeway);
// One event of one source runs at a time. The source is kept alive while its handler runs.
void dispatch_source_set_event_handler(dispatch_source_t source, dispatch_block_t handler);
void dispatch_resume(dispatch_source_t source);
// No further event starts; never waits for one that runs.
void dispatch_source_cancel(dispatch_source_t source);
void dispatch_retain(dispatch_source_t source);
void dispatch_release(dispatch_source_t source);
