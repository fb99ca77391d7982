#include "Clock.h"

#include <bsd/wallclock.h>

#include <atomic>

namespace platform {
namespace {

uint64_t Read(clockid_t id) {
    timespec t{};
    clock_gettime(id, &t);
    return static_cast<uint64_t>(t.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(t.tv_nsec);
}

class SystemClock : public Clock {
public:
    uint64_t BootNs() override { return Read(CLOCK_BOOTTIME); }
    uint64_t MonotonicNs() override { return Read(CLOCK_MONOTONIC); }
    time_t WallSeconds() override { return time(nullptr); }
    bool IsVirtual() const override { return false; }
};

SystemClock& System() {
    static SystemClock& clock = *new SystemClock;
    return clock;
}

std::atomic<Clock*> replacement{nullptr};

}  // namespace

Clock& CurrentClock() {
    Clock* clock = replacement.load(std::memory_order_acquire);
    return clock ? *clock : System();
}

void SetClock(Clock* clock) {
    replacement.store(clock, std::memory_order_release);
}

}  // namespace platform

time_t wallclock_time() {
    return platform::CurrentClock().WallSeconds();
}
