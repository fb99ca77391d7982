#include "VirtualClock.h"

#include "TimerQueue.h"

namespace platform {

namespace {
constexpr int64_t kSecond = 1'000'000'000;
constexpr uint64_t kStartNs = 1'000 * uint64_t{kSecond};  // as if the machine had been up for a while
}  // namespace

VirtualClock::VirtualClock(time_t wallSeconds) : bootNs(kStartNs), wallOffsetNs(0) {
    SetWall(wallSeconds);
    SetClock(this);
}

VirtualClock::~VirtualClock() {
    SetClock(nullptr);
}

time_t VirtualClock::WallSeconds() {
    return (static_cast<int64_t>(bootNs) + wallOffsetNs) / kSecond;
}

void VirtualClock::SetWall(time_t wallSeconds, uint32_t nanoseconds) {
    wallOffsetNs = wallSeconds * kSecond + nanoseconds - static_cast<int64_t>(bootNs);
}

void VirtualClock::Advance(int64_t seconds) {
    const uint64_t target = bootNs + static_cast<uint64_t>(seconds * kSecond);
    TimerQueue& queue = TimerQueue::Shared();
    for (uint64_t due; (due = queue.NextDeadline()) <= target;) {
        if (due > bootNs) bootNs = due;
        queue.RunOneDue();
    }
    bootNs = target;
}

void VirtualClock::Sleep(int64_t seconds) {
    bootNs += static_cast<uint64_t>(seconds * kSecond);
    while (TimerQueue::Shared().RunOneDue()) {
    }
}

}  // namespace platform
