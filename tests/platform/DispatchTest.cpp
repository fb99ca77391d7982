#include "VirtualClock.h"

#include <dispatch/dispatch.h>
#include <dispatch/exit_gate.h>
#include <dispatch/pump.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <semaphore>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr int64_t kSecond = 1'000'000'000;

// A source on the global queue, cancelled and released with the object.
class Timer {
public:
    Timer(int64_t delayNs, uint64_t intervalNs, std::function<void()> handler)
        : source(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_global_queue(0, 0))) {
        dispatch_source_set_timer(source, dispatch_time(DISPATCH_TIME_NOW, delayNs), intervalNs, 0);
        dispatch_source_set_event_handler(source, std::move(handler));
        dispatch_resume(source);
    }
    ~Timer() {
        Cancel();
        dispatch_release(source);
    }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
    void Cancel() { dispatch_source_cancel(source); }

private:
    dispatch_source_t source;
};

TEST(DispatchTime, SaturatesAtBothEnds) {
    EXPECT_EQ(dispatch_time(5, -10), 1u);
    EXPECT_EQ(dispatch_time(5, INT64_MIN), 1u);
    EXPECT_EQ(dispatch_time(5, 10), 15u);
    EXPECT_EQ(dispatch_time(DISPATCH_TIME_FOREVER - 5, 10), DISPATCH_TIME_FOREVER);
    EXPECT_EQ(dispatch_time(DISPATCH_TIME_FOREVER, -10), DISPATCH_TIME_FOREVER);
}

TEST(TimerSource, FiresInOrderOnItsGridAndNeverAfterCancel) {
    platform::VirtualClock clock(1'700'000'000);
    std::vector<int> fired;
    Timer late(3 * kSecond, DISPATCH_TIME_FOREVER, [&] { fired.push_back(3); });
    Timer early(1 * kSecond, DISPATCH_TIME_FOREVER, [&] { fired.push_back(1); });
    Timer repeated(2 * kSecond, 5 * kSecond, [&] { fired.push_back(2); });
    Timer cancelled(2 * kSecond, 1 * kSecond, [&] { fired.push_back(9); });
    cancelled.Cancel();
    clock.Advance(12);
    EXPECT_EQ(fired, (std::vector<int>{1, 2, 3, 2, 2}));
}

TEST(TimerSource, ManySourcesComeInOrderOfTheirMoments) {
    platform::VirtualClock clock(1'700'000'000);
    std::vector<std::unique_ptr<Timer>> timers;
    std::vector<int64_t> fired;
    for (int i = 0; i < 1000; i++) {
        const int64_t delay = (i * 7919) % 1000 + 1;
        timers.push_back(std::make_unique<Timer>(delay * kSecond, DISPATCH_TIME_FOREVER,
                                                 [&fired, delay] { fired.push_back(delay); }));
    }
    for (size_t i = 0; i < timers.size(); i += 3) timers[i]->Cancel();
    clock.Advance(2000);
    EXPECT_EQ(fired.size(), 666u);
    EXPECT_TRUE(std::is_sorted(fired.begin(), fired.end()));
}

TEST(TimerSource, PeriodsMissedAsleepComeAsOneEventAndTheGridStays) {
    platform::VirtualClock clock(1'700'000'000);
    const uint64_t start = clock.BootNs();
    std::vector<uint64_t> seconds;
    Timer repeated(10 * kSecond, 10 * kSecond, [&] { seconds.push_back((clock.BootNs() - start) / kSecond); });
    clock.Advance(10);
    clock.Sleep(37);
    clock.Advance(20);
    EXPECT_EQ(seconds, (std::vector<uint64_t>{10, 47, 50, 60}));
}

TEST(TimerSource, RealClockFiresOnAPoolThreadNotEarlyAndSideBySide) {
    std::binary_semaphore blocked{0}, release{0}, released{0}, done{0};
    Timer hangs(1'000'000, DISPATCH_TIME_FOREVER, [&] {
        blocked.release();
        release.acquire();
        released.release();
    });
    blocked.acquire();
    const auto armed = std::chrono::steady_clock::now();
    std::thread::id ran;
    Timer second(5'000'000, DISPATCH_TIME_FOREVER, [&] {
        ran = std::this_thread::get_id();
        done.release();
    });
    done.acquire();
    EXPECT_GE(std::chrono::steady_clock::now() - armed, std::chrono::milliseconds(5));
    EXPECT_NE(ran, std::this_thread::get_id());
    release.release();
    released.acquire();
}

// Gives back the only reference to a source that is due, without having cancelled it.
void ReleaseWhileItFires() {
    const dispatch_source_t source =
        dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_global_queue(0, 0));
    dispatch_source_set_timer(source, DISPATCH_TIME_NOW, 1, 0);
    dispatch_source_set_event_handler(source, [kept = std::make_shared<int>(1)] { EXPECT_EQ(*kept, 1); });
    dispatch_resume(source);
    dispatch_release(source);
}

TEST(TimerSource, CreationCancelAndFiringFromManyThreads) {
    static std::atomic<int> fired{0};  // an event in flight may outlive its timer
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++)
        threads.emplace_back([] {
            for (int i = 0; i < 500; i++) {
                Timer a(0, DISPATCH_TIME_FOREVER, [] { fired++; });
                Timer b(kSecond, kSecond, [] {});
                ReleaseWhileItFires();
            }
        });
    for (auto& thread : threads) thread.join();
    std::binary_semaphore done{0};
    Timer last(0, DISPATCH_TIME_FOREVER, [&] { done.release(); });
    done.acquire();
    EXPECT_LE(fired, 2000);
}

TEST(GlobalQueue, BlocksRunSideBySideEvenWhenAllEarlierOnesBlock) {
    constexpr int kBlocks = 20;
    std::counting_semaphore<kBlocks> release{0}, ended{0};
    for (int i = 0; i < kBlocks; i++)
        dispatch_async(dispatch_get_global_queue(0, 0), [&] {
            release.acquire();
            ended.release();
        });
    dispatch_async(dispatch_get_global_queue(0, 0), [&] { release.release(kBlocks); });
    for (int i = 0; i < kBlocks; i++) ended.acquire();
}

TEST(MainQueue, PumpRunsBlocksInOrderAndEndsByConditionOrTime) {
    std::vector<int> ran;
    for (int i = 0; i < 3; i++) dispatch_async(dispatch_get_main_queue(), [&ran, i] { ran.push_back(i); });
    EXPECT_TRUE(dispatch_pump_main([&] { return ran.size() == 2; }, 1000));
    EXPECT_EQ(ran, (std::vector<int>{0, 1}));
    EXPECT_FALSE(dispatch_pump_main(nullptr, 0));
    EXPECT_TRUE(dispatch_pump_main([&] { return ran.size() == 3; }, 1000));
    dispatch_async(dispatch_get_global_queue(0, 0),
                   [&] { dispatch_async(dispatch_get_main_queue(), [&] { ran.push_back(3); }); });
    EXPECT_TRUE(dispatch_pump_main([&] { return ran.size() == 4; }, 0xFFFFFFFF));
}

// --- the exit gate: each case is a process of its own ----------------------------------------------------------------

class ExitGate : public testing::Test {
protected:
    void SetUp() override { testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

// Until the main thread, which does nothing else any more, sleeps in the gate.
void AwaitMainThreadAsleep() {
    std::string line;
    do {
        std::this_thread::yield();
        std::getline(std::ifstream("/proc/self/stat"), line);
    } while (line.find(") S ") == line.npos);
}

[[noreturn]] void EndWhileHandlerRuns(bool handlerHangs) {
    static std::atomic<bool> ended{false}, isClosing{false};
    static std::binary_semaphore running{0};
    std::atexit([] { _exit(ended ? 7 : 9); });
    dispatch_async(dispatch_get_global_queue(0, 0), [handlerHangs] {
        running.release();
        if (handlerHangs) pause();
        isClosing.wait(false);
        AwaitMainThreadAsleep();
        ended = true;
    });
    running.acquire();
    isClosing = true;
    isClosing.notify_one();
    dispatch_gate_close(5);
    exit(3);
}

TEST_F(ExitGate, WaitsForARunningHandler) {
    EXPECT_EXIT(EndWhileHandlerRuns(false), testing::ExitedWithCode(7), "");
}

TEST_F(ExitGate, AHangingHandlerDelaysTheEndByHalfASecondAndSkipsDestructors) {
    EXPECT_EXIT(EndWhileHandlerRuns(true), testing::ExitedWithCode(5), "");
}

[[noreturn]] void EndFromManyHandlersAtOnce() {
    for (int i = 0; i < 8; i++)
        dispatch_async(dispatch_get_global_queue(0, 0), [] {
            dispatch_gate_close(4);
            exit(4);
        });
    dispatch_async(dispatch_get_main_queue(), [] {
        dispatch_gate_close(4);
        exit(4);
    });
    dispatch_main();
}

TEST_F(ExitGate, ManyCallersEndTheProcessOnce) {
    EXPECT_EXIT(EndFromManyHandlersAtOnce(), testing::ExitedWithCode(4), "");
}

}  // namespace
