// VirtualClock: a clock that only moves when told to. Timer sources that come due on the way run on the calling thread,
// in the order of their moments, with the clock standing at each one's moment. For tests; one thread drives it.
#pragma once

#include "Clock.h"

namespace platform {

// Takes the place of the system's clock for its lifetime.
class VirtualClock : public Clock {
public:
    explicit VirtualClock(time_t wallSeconds);
    ~VirtualClock() override;
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    // Moves all three clocks on by `seconds` and runs what comes due on the way.
    void Advance(int64_t seconds);
    // The machine sleeps for `seconds`: what came due meanwhile runs afterwards.
    void Sleep(int64_t seconds);
    // Somebody sets the calendar's clock; the other two go on as if nothing had happened.
    void SetWall(time_t wallSeconds, uint32_t nanoseconds = 0);

    uint64_t BootNs() override { return bootNs; }
    uint64_t MonotonicNs() override { return bootNs; }
    time_t WallSeconds() override;
    bool IsVirtual() const override { return true; }

private:
    uint64_t bootNs;
    int64_t wallOffsetNs;  // wall = boot + offset
};

}  // namespace platform
