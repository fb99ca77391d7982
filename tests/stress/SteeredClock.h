// SteeredClock: the system's clock, but standing still until Go, and put forward on request. In place for its life,
// which must not begin or end while timer sources are armed. Any thread.
#pragma once

#include "Clock.h"

#include <atomic>

class SteeredClock final : public platform::Clock {
public:
    explicit SteeredClock(bool standsAtFirst) : stands(standsAtFirst) { platform::SetClock(this); }
    ~SteeredClock() override { platform::SetClock(nullptr); }
    SteeredClock(const SteeredClock&) = delete;
    SteeredClock& operator=(const SteeredClock&) = delete;

    void Go() { stands = false; }
    // Wakes nobody: what is due now starts with whatever is due next by the system's clock.
    void PutForward(time_t seconds) { aheadSeconds += seconds; }
    uint64_t StartNs() const { return startNs; }

    uint64_t BootNs() override {
        const uint64_t now = stands ? startNs : Read(CLOCK_BOOTTIME);
        return now + static_cast<uint64_t>(aheadSeconds) * kSecondNs;
    }
    uint64_t MonotonicNs() override { return Read(CLOCK_MONOTONIC); }
    time_t WallSeconds() override { return (stands ? wall : time(nullptr)) + aheadSeconds; }
    bool IsVirtual() const override { return false; }

private:
    static constexpr uint64_t kSecondNs = 1'000'000'000;

    static uint64_t Read(clockid_t id) {
        timespec t{};
        clock_gettime(id, &t);
        return static_cast<uint64_t>(t.tv_sec) * kSecondNs + static_cast<uint64_t>(t.tv_nsec);
    }

    const uint64_t startNs = Read(CLOCK_BOOTTIME);
    const time_t wall = time(nullptr);
    std::atomic<bool> stands;
    std::atomic<time_t> aheadSeconds{0};
};
