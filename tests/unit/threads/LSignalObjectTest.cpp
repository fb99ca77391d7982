#include "threads/LSignalObjectGroup.h"
#include "threads/LThread.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <pthread.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;

class Stopwatch {
public:
    auto Elapsed() const { return std::chrono::steady_clock::now() - start; }

private:
    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

// A view of any two descriptors.
struct View : LSignalObjectRef {
    View(int reading, int writing) {
        readDescriptor = reading;
        writeDescriptor = writing;
    }
};

class Waiter : public LThread {
public:
    ~Waiter() override { StopThreadNow(); }
    void ThreadFunction() override { ProcessWait(kSignalNoTimeOut); }
};

// Runs a wait on another thread and interrupts it by a signal handler until it returns.
template <class Wait>
bool Interrupted(Wait wait) {
    struct sigaction handler {
    }, before{};
    handler.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &handler, &before);
    std::atomic<bool> done{false};
    bool result = false;
    std::thread waiter([&] {
        result = wait();
        done = true;
    });
    while (!done) {
        ::pthread_kill(waiter.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    waiter.join();
    ::sigaction(SIGUSR1, &before, nullptr);
    return result;
}

}  // namespace

TEST(LSignalObject, StaysSetUntilReset) {
    LSignalObject object;
    EXPECT_FALSE(object.IsSignaled());
    const Stopwatch watch;
    EXPECT_FALSE(object.WaitSignal(20));
    EXPECT_GE(watch.Elapsed(), 20ms);
    for (int i = 0; i < 3; i++) object.Signal();
    for (int i = 0; i < 3; i++) EXPECT_TRUE(object.WaitSignal(0));
    object.Reset();
    EXPECT_FALSE(object.IsSignaled());
    for (int i = 0; i < 100'000; i++) object.Signal();  // more than the pipe holds
    EXPECT_TRUE(object.IsSignaled());
    object.Reset();
    EXPECT_FALSE(object.IsSignaled());
    for (const int descriptor : {object.ReadDescriptor(), object.ReadDescriptor() + 1}) {
        EXPECT_EQ(::fcntl(descriptor, F_GETFD), FD_CLOEXEC);
        EXPECT_NE(::fcntl(descriptor, F_GETFL) & O_NONBLOCK, 0);
    }
}

TEST(LSignalObject, WakesAllWaiters) {
    LSignalObject object, never, neither;
    std::vector<std::thread> waiters;
    std::atomic<int> woken{0};
    for (int i = 0; i < 3; i++) {
        waiters.emplace_back([&] { woken += object.WaitSignal(kSignalNoTimeOut); });
        waiters.emplace_back([&] { woken += never.WaitSignalDual(object, kSignalNoTimeOut); });
        waiters.emplace_back([&] { woken += never.WaitSignalTriple(neither, object, kSignalNoTimeOut); });
    }
    object.Signal();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(woken, 9);
    for (const bool set : {object.WaitSignalDual(never, 0), object.WaitSignalTriple(never, neither, 0),
                           never.WaitSignalTriple(object, neither, 0)})
        EXPECT_TRUE(set);
    EXPECT_FALSE(never.WaitSignalTriple(neither, never, 0));
}

TEST(LSignalObject, DescriptorsOfAnyNumberButNoDeadOnes) {
    LSignalObject object;
    const int high = ::fcntl(object.ReadDescriptor(), F_DUPFD_CLOEXEC, 1'500);
    ASSERT_GE(high, 1'500);
    const View far(high, object.ReadDescriptor() + 1);
    LSignalObject never;
    EXPECT_FALSE(far.IsSignaled());
    object.Signal();
    EXPECT_TRUE(far.IsSignaled());
    EXPECT_TRUE(never.WaitSignalDual(far, 0));
    LSignalObjectGroup group;
    group.Add(far);  // the set has no room for it
    EXPECT_EQ(group.Count(), 0);
    ::close(high);
    const View none(-1, -1);
    for (const LSignalObjectRef& dead : {LSignalObjectRef(far), LSignalObjectRef(none)}) {
        EXPECT_FALSE(dead.WaitSignal(kSignalNoTimeOut));
        EXPECT_FALSE(never.WaitSignalDual(dead, kSignalNoTimeOut));
    }
    View(none).Signal();
    View(none).Reset();
}

TEST(LSignalObject, WaitsThatAreInterrupted) {
    LSignalObject object;
    EXPECT_TRUE(Interrupted([&] { return object.WaitSignal(kSignalNoTimeOut); }));
    EXPECT_TRUE(Interrupted([&] {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(object.ReadDescriptor(), &set);
        return object.Select(object.ReadDescriptor(), set, kSignalNoTimeOut);
    }));
    LSignalObjectGroup group;
    group.Add(object);
    EXPECT_FALSE(Interrupted([&] { return group.Select(kSignalNoTimeOut); }));
    fd_set set;
    FD_ZERO(&set);
    FD_SET(object.ReadDescriptor(), &set);
    EXPECT_FALSE(object.Select(object.ReadDescriptor(), set, 0));
    // What is destroyed after such a look, or stopped, relies on it.
    EXPECT_FALSE(Interrupted([&] {
        for (int i = 0; i < 20'000; i++)
            if (object.IsSignaled()) return true;
        return false;
    }));
    Waiter thread;
    const Stopwatch watch;
    EXPECT_FALSE(Interrupted([&] { return thread.ProcessWait(20); }));
    EXPECT_GE(watch.Elapsed(), 20ms);
    EXPECT_TRUE(Interrupted([&] {
        for (int i = 0; i < 200; i++) {
            Waiter started;
            started.Start(0);
            if (started.Port() == LThread::kNoPort) return false;
        }
        return true;
    }));
}

TEST(LSignalObjectGroup, HoldsUpTo256AndIsNotChangedByWaits) {
    LSignalObject first, second;
    LSignalObjectGroup group, copy, full;
    EXPECT_FALSE(group.IsSignaled());
    copy.Add(group);  // adds nothing
    EXPECT_EQ(copy.Count(), 0);
    group.Add(first);
    group.Add(second);
    second.Signal();
    for (int i = 0; i < 2; i++) EXPECT_TRUE(group.Select(kSignalNoTimeOut));
    second.Reset();
    EXPECT_FALSE(group.IsSignaled());
    copy.Add(group);
    copy.Add(copy);
    EXPECT_EQ(copy.Count(), 4);
    first.Signal();
    EXPECT_TRUE(copy.IsSignaled());
    first.Reset();
    for (int i = 0; i < 255; i++) full.Add(first);
    full.Add(group);  // the second one finds no place
    EXPECT_EQ(full.Count(), 256);
    full.Add(second);
    EXPECT_EQ(full.Count(), 256);
    (first.ReadDescriptor() < second.ReadDescriptor() ? second : first).Signal();
    EXPECT_FALSE(full.IsSignaled());
}
