#include "ExitGate.h"

#include <dispatch/exit_gate.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace platform {
namespace {

constexpr uint32_t kClosed = 0x8000'0000;
constexpr uint64_t kPatienceNs = 500'000'000;

// Threads inside, and kClosed. Trivially destructible: it outlives every static object.
std::atomic<uint32_t> word{0};
std::atomic<bool> passed{false};
thread_local int depth = 0;

uint64_t NowNs() {
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<uint64_t>(t.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(t.tv_nsec);
}

void FutexWait(uint32_t expected, uint64_t timeoutNs) {
    timespec t{};
    t.tv_sec = static_cast<time_t>(timeoutNs / 1'000'000'000);
    t.tv_nsec = static_cast<long>(timeoutNs % 1'000'000'000);
    syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, expected, &t, nullptr, 0);
}

void FutexWakeAll() {
    syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

[[noreturn]] void SleepForever() {
    for (;;) pause();
}

void CountOut() {
    if (word.fetch_sub(1, std::memory_order_acq_rel) & kClosed) FutexWakeAll();
}

}  // namespace

ExitGatePassage::ExitGatePassage() {
    if (depth++ > 0) return;
    uint32_t seen = word.load(std::memory_order_relaxed);
    do {
        if (seen & kClosed) {
            depth = 0;
            SleepForever();
        }
    } while (!word.compare_exchange_weak(seen, seen + 1, std::memory_order_acq_rel, std::memory_order_relaxed));
}

ExitGatePassage::~ExitGatePassage() {
    if (depth > 0 && --depth == 0) CountOut();
}

void LeaveExitGateForGood() {
    if (depth == 0) return;
    depth = 0;
    CountOut();
}

}  // namespace platform

bool dispatch_gate_passed() {
    return platform::passed.load(std::memory_order_acquire);
}

void dispatch_gate_close(int status) {
    using namespace platform;
    if (word.fetch_or(kClosed, std::memory_order_acq_rel) & kClosed) {
        LeaveExitGateForGood();
        SleepForever();
    }
    const uint32_t own = depth > 0 ? 1 : 0;
    const uint64_t deadline = NowNs() + kPatienceNs;
    for (;;) {
        const uint32_t seen = word.load(std::memory_order_acquire);
        if ((seen & ~kClosed) <= own) {
            passed.store(true, std::memory_order_release);
            return;
        }
        const uint64_t now = NowNs();
        if (now >= deadline) _exit(status);
        FutexWait(seen, deadline - now);
    }
}
