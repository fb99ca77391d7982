// The layer's clock: the one place that reads time, replaceable as a whole so that tests drive years in a moment.
// Timer sources count on BootNs (time asleep counts), waits and sleeps on MonotonicNs, calendar time is WallSeconds.
#pragma once

#include <cstdint>
#include <ctime>

namespace platform {

class Clock {
public:
    virtual ~Clock() = default;
    virtual uint64_t BootNs() = 0;       // CLOCK_BOOTTIME
    virtual uint64_t MonotonicNs() = 0;  // CLOCK_MONOTONIC
    virtual time_t WallSeconds() = 0;    // CLOCK_REALTIME
    // Real clocks wake the pool through a timerfd; on a virtual one only VirtualTime::Advance runs timer sources.
    virtual bool IsVirtual() const = 0;
};

Clock& CurrentClock();
// Test seam: replaces the clock (null: the system's again). Not while timer sources are armed.
void SetClock(Clock* clock);

}  // namespace platform
