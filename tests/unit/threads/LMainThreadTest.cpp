#include "threads/LProcessEventsHandler.h"
#include "threads/LThreadNotifyInterface.h"

#include <gtest/gtest.h>

#include <bsd/LDescriptor.h>
#include <dispatch/pump.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr unsigned int kLong = 20'000;

class Item final : public LThreadRunOnMainThreadData {
public:
    explicit Item(std::function<void()> body, std::atomic<int>* alive = nullptr) : run(std::move(body)), count(alive) {
        if (count) (*count)++;
    }
    ~Item() override {
        if (count) (*count)--;
    }
    void MainThreadFunction() override { run(); }

private:
    const std::function<void()> run;
    std::atomic<int>* const count;
};

// Items run for its lifetime.
struct Served {
    Served() { LThreadRunOnMainThread::Init(); }
    ~Served() { LThreadRunOnMainThread::Destroy(); }
};

// Writes down what it is told.
class Log final : public LProcessInterfaceVoid {
public:
    void SetError(const char* text) override { Add(std::string("error ") + text); }
    void SetStatus(const char* text, int level) override { Add(text + std::to_string(level)); }
    void SetProgress(double fraction) override { Add(std::to_string(std::lround(fraction * 100))); }
    void SetProgressIndeterminateOn() override { Add("on"); }
    void SetProgressIndeterminateOff() override { Add("off"); }

    std::vector<std::string> lines;

private:
    void Add(const std::string& line) {
        EXPECT_TRUE(LIsMainThread());
        lines.push_back(line);
    }
};

class Reporter final : public LThreadNotifyInterface {
public:
    Reporter(LProcessInterface& target, std::function<void(Reporter&)> function)
        : LThreadNotifyInterface(target), body(std::move(function)) {}
    ~Reporter() override { StopThreadNow(); }
    void ThreadFunction() override {
        EXPECT_FALSE(LIsMainThread());
        body(*this);
        done.Signal();
    }

    LSignalObject done;

private:
    const std::function<void(Reporter&)> body;
};

class UntilStopped final : public LProcessEventsHandler {
public:
    bool IsProcessEventHandlerToStop() const override { return stop; }
    std::atomic<bool> stop{false};
};

double ProcessorSeconds() {
    timespec used{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

// An object that the main thread's set refuses: the last of a chain of sets, each in the next.
struct Chain : LSignalObjectRef {
    explicit Chain(const LSignalObject& object) {
        readDescriptor = object.ReadDescriptor();
        for (LDescriptor& set : sets) {
            set.Reset(::epoll_create1(EPOLL_CLOEXEC));
            epoll_event event{EPOLLIN, {}};
            EXPECT_EQ(::epoll_ctl(set.Get(), EPOLL_CTL_ADD, readDescriptor, &event), 0);
            readDescriptor = set.Get();
        }
    }
    LDescriptor sets[5];
};

class Elapsed {
public:
    long Ms() const {
        using namespace std::chrono;
        return duration_cast<milliseconds>(steady_clock::now() - start).count();
    }

private:
    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

}  // namespace

TEST(LThreadRunOnMainThread, ItemsRunInOrderOnceSomebodyServesThem) {
    LThreadRunOnMainThread first, second;
    std::string order;
    std::atomic<int> alive{0};
    std::thread([&] {
        for (const char c : {'a', 'b', 'c'})
            (c == 'b' ? second : first).RunOnMainThread(new Item([&order, c] { order += c; }, &alive));
    }).join();
    EXPECT_EQ(first.GetRefCount(), 2);
    LProcessClearEventQueue();  // nobody runs them yet: they wait
    EXPECT_EQ(order, "");
    const Served served;
    EXPECT_TRUE(LProcessClearEventQueue());
    EXPECT_EQ(order, "abc");
    EXPECT_EQ(first.GetRefCount() + second.GetRefCount() + alive, 0);
    // The main queue's loop serves them, too.
    second.RunOnMainThread(new Item([&order] { order += 'd'; }, &alive));
    second.RunOnMainThread(new Item([&order] { order += 'e'; }, &alive));
    EXPECT_TRUE(dispatch_pump_main([&] { return order == "abcde"; }, kLong));
}

TEST(LThreadRunOnMainThread, AWithdrawnPostersItemsNeverRun) {
    const Served served;
    std::atomic<int> alive{0};
    std::string order;
    LThreadRunOnMainThread stays;
    auto goes = std::make_unique<LThreadRunOnMainThread>();
    for (const char c : {'a', 'b', 'c', 'd'})
        (c % 2 ? *goes : stays).RunOnMainThread(new Item([&order, c] { order += c; }, &alive));
    goes->ThreadRunOnMainThreadDestroy();
    EXPECT_EQ(goes->GetRefCount(), 0);
    EXPECT_EQ(alive, 2);
    goes->RunOnMainThread(new Item([&order] { order += 'x'; }, &alive));  // deleted
    EXPECT_EQ(alive, 2);
    // An item may destroy its own poster.
    LThreadRunOnMainThread& poster = *new LThreadRunOnMainThread;
    poster.RunOnMainThread(new Item([&] { delete &poster; }, &alive));
    poster.RunOnMainThread(new Item([&order] { order += 'y'; }, &alive));
    goes.reset();
    LProcessClearCurrentEvents();
    EXPECT_EQ(order, "bd");
    EXPECT_EQ(alive, 0);
}

TEST(LThreadRunOnMainThread, DestroyedByAnyThreadAtAnyMoment) {
    const Served served;
    std::atomic<int> alive{0}, owners{0};
    std::atomic<bool> stop{false};
    const auto churn = [&] {
        while (!stop) {
            // What an item touches lives as long as its poster: a sanitizer sees an item that runs too late.
            auto touched = std::make_unique<int>(0);
            {
                LThreadRunOnMainThread poster;
                for (int i = 0; i < 3; i++) poster.RunOnMainThread(new Item([p = touched.get()] { ++*p; }, &alive));
            }
            if (*touched > 3) abort();  // and nobody adds to it now
            owners++;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; i++) threads.emplace_back(churn);
    while (owners < 3'000) ProcessWaitAndProcessEvents(5);
    stop = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(alive, 0);
}

TEST(LThreadRunOnMainThread, DestructionWaitsForAnItemThatRuns) {
    const Served served;
    auto poster = std::make_unique<LThreadRunOnMainThread>();
    std::atomic<bool> runs{false}, isAboutToBeDestroyed{false}, hasEnded{false};
    poster->RunOnMainThread(new Item([&] {
        runs = true;
        while (!isAboutToBeDestroyed) std::this_thread::yield();
        for (int i = 0; i < 1'000; i++) std::this_thread::yield();  // time for a destruction that doesn't wait
        hasEnded = true;
    }));
    std::thread destroyer([&] {
        while (!runs) std::this_thread::yield();
        isAboutToBeDestroyed = true;
        poster.reset();
        EXPECT_TRUE(hasEnded);
    });
    LProcessClearEventQueue();
    destroyer.join();
}

// Whichever thread forks: the child has no other.
TEST(LIsMainThread, IsTrueInAForkedProcess) {
    const auto isInChild = [] {
        LIsMainThread();  // what the parent was told isn't the child's
        const pid_t child = ::fork();
        if (child == 0) ::_exit(LIsMainThread() ? 0 : 1);
        int status = 1;
        ::waitpid(child, &status, 0);
        return status == 0;
    };
    EXPECT_TRUE(isInChild());
    std::thread([&] { EXPECT_TRUE(isInChild()); }).join();
}

TEST(LThreadNotifyInterface, ReportsReachTheTargetOnTheMainThread) {
    const Served served;
    Log log;
    Reporter reporter(log, [](Reporter& self) {
        self.SetStatus("first", 0);
        self.SetStatus("second", 0);
        self.SetStatus("detail", 1);
        self.SetStatus("none", 2);
        self.SetError("broken");
        self.SetError(nullptr);
        for (const double fraction : {0.5, 0.999, 0.29, -1.0, std::nan(""), 1e300}) self.SetProgress(fraction);
        self.SetProgressIndeterminateOn();
        self.SetProgressIndeterminateOff();
    });
    reporter.Start(0);
    reporter.done.WaitSignal(kLong);
    EXPECT_TRUE(log.lines.empty());
    reporter.EvQueuedNotifyData(6, nullptr, 0);
    LProcessClearCurrentEvents();
    EXPECT_EQ(log.lines, (std::vector<std::string>{"second0", "second0", "detail1", "error broken", "50", "99", "28",
                                                   "0", "0", "4294967295", "on", "off"}));
    // What is still queued when the reporter goes is delivered to nobody.
    log.lines.clear();
    {
        Reporter late(log, [](Reporter& self) {
            while (!self.IsToStop()) self.SetProgress(0.1);
        });
        late.Start(0);
    }
    LProcessClearCurrentEvents();
    EXPECT_TRUE(log.lines.empty());
}

TEST(LThreadQueuedNotify, TellsOnTheMainThread) {
    class Notify final : public LThreadQueuedNotify {
    public:
        ~Notify() override { ThreadQueuedNotifyDestroy(); }
        void EvQueuedNotify() override { count++; }
        int count = 0;
    } notify;
    const Served served;
    std::thread([&] { notify.PostQueueNotify(); }).join();
    EXPECT_EQ(notify.count, 0);
    LProcessClearEventQueue();
    EXPECT_EQ(notify.count, 1);
}

TEST(ProcessEvents, ASignalEndsTheWaitAtOnceAndStaysSet) {
    LSignalObject object, other;
    LSignalObjectGroup group;
    group.Add(other);
    group.Add(object);
    group.Add(object);
    EXPECT_EQ(ProcessWaitSignalObjectAndProcessEvents(object, 0), waitTimedOut);
    const auto signalDuring = [&](const std::function<int()>& wait) {
        object.Reset();
        const Elapsed elapsed;
        std::thread signaller([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));  // not an order: both are right
            object.Signal();
        });
        EXPECT_EQ(wait(), waitSet);
        signaller.join();
        EXPECT_LT(elapsed.Ms(), 5'000);
        EXPECT_TRUE(object.IsSignaled());         // its byte is unread, its descriptor open
        EXPECT_FALSE(LProcessClearEventQueue());  // no wake-up is left over
    };
    signalDuring([&] { return ProcessWaitSignalObjectAndProcessEvents(object, kLong); });
    signalDuring([&] { return ProcessWaitSignalObjectAndProcessEvents(object); });
    signalDuring([&] { return ProcessWaitSignalObjectGroupAndProcessEvents(group, kLong); });
    const Chain chain(object);  // can't wake the wait, which has to look
    signalDuring([&] { return ProcessWaitSignalObjectAndProcessEvents(chain, kLong); });
    EXPECT_EQ(ProcessWaitSignalObjectAndProcessEvents(object, 0), waitTimedOut);  // without looking
    EXPECT_EQ(ProcessWaitSignalObjectAndProcessEvents(other, 30), waitTimedOut);
}

// A second wake-up in the same round stays behind when the first one ends the wait; here an event posts it.
TEST(ProcessEvents, AWaitTakesItsWakeUpsAlong) {
    const Served served;
    LSignalObject object;
    LSignalObjectGroup group;
    group.Add(object);
    LThreadRunOnMainThread poster;
    const auto wakeUpDuring = [&](const std::function<int()>& wait) {
        object.Reset();
        poster.RunOnMainThread(new Item([&] {
            const CFSocketRef socket =
                CFSocketCreateWithNative(kCFAllocatorDefault, object.ReadDescriptor(), kCFSocketReadCallBack,
                                         LProcessEventsHandler::SocketCallBack, nullptr);
            LProcessEventsHandler::SocketCallBack(socket, kCFSocketReadCallBack, nullptr, nullptr, nullptr);
            CFRelease(socket);
            EXPECT_EQ(GetNumEventsInQueue(GetMainEventQueue()), 1);
            object.Signal();
        }));
        EXPECT_EQ(wait(), waitSet);
        EXPECT_EQ(GetNumEventsInQueue(GetMainEventQueue()), 0);
        LProcessClearEventQueue();
    };
    wakeUpDuring([&] { return ProcessWaitSignalObjectAndProcessEvents(object, kLong); });
    wakeUpDuring([&] { return ProcessWaitSignalObjectAndProcessEvents(object); });
    wakeUpDuring([&] { return ProcessWaitSignalObjectGroupAndProcessEvents(group, kLong); });
}

TEST(ProcessEvents, TheOwnerStopsEveryWait) {
    const Served served;
    LSignalObject never;
    LSignalObjectGroup group;
    group.Add(never);
    LThreadRunOnMainThread poster;
    const auto stopped = [&](const std::function<int(UntilStopped&)>& wait) {
        UntilStopped owner;
        poster.RunOnMainThread(new Item([&] { owner.stop = true; }));  // events go on being served
        const Elapsed elapsed;
        EXPECT_EQ(wait(owner), waitStopped);
        EXPECT_LT(elapsed.Ms(), 5'000);
        EXPECT_EQ(wait(owner), waitStopped);
    };
    stopped([](UntilStopped& owner) { return owner.ProcessWaitForeverAndProcessEvents(); });
    stopped([](UntilStopped& owner) { return owner.ProcessWaitAndProcessEvents(kLong); });
    stopped([](UntilStopped& owner) { return owner.ProcessWaitAndProcessEvents(kSignalNoTimeOut); });
    stopped([&](UntilStopped& owner) { return owner.ProcessWaitSignalAndProcessEvents(never, kLong); });
    stopped([&](UntilStopped& owner) { return owner.ProcessWaitSignalForeverAndProcessEvents(never); });
    stopped([&](UntilStopped& owner) { return owner.ProcessWaitSignalObjectGroupAndProcessEvents(group, kLong); });
}

// Without an event that says so: the waits without end look by themselves.
TEST(ProcessEvents, AnotherThreadStopsEveryWaitWithoutEnd) {
    class StopsAtTheThirdQuestion final : public LProcessEventsHandler {
    public:
        bool IsProcessEventHandlerToStop() const override { return ++asked >= 3; }
        mutable int asked = 0;
    };
    LSignalObject never;
    LSignalObjectGroup group;
    group.Add(never);
    using Owner = StopsAtTheThirdQuestion;
    EXPECT_EQ(Owner().ProcessWaitForeverAndProcessEvents(), waitStopped);
    EXPECT_EQ(Owner().ProcessWaitAndProcessEvents(kSignalNoTimeOut), waitStopped);
    EXPECT_EQ(Owner().ProcessWaitSignalAndProcessEvents(never, kSignalNoTimeOut), waitStopped);
    EXPECT_EQ(Owner().ProcessWaitSignalObjectGroupAndProcessEvents(group, kSignalNoTimeOut), waitStopped);
}

TEST(ProcessEvents, IdleWaitsTakeTheirTimeAndNoProcessor) {
    LSignalObject never;
    const Elapsed elapsed;
    const double before = ProcessorSeconds();
    EXPECT_EQ(ProcessWaitAndProcessEvents(200), 0);
    EXPECT_EQ(ProcessWaitSignalObjectAndProcessEvents(never, 200), waitTimedOut);
    EXPECT_GE(elapsed.Ms(), 400);
    EXPECT_LT(ProcessorSeconds() - before, 0.1);
}

TEST(ProcessEvents, CurrentEventsAreThoseBeforeTheCall) {
    const Served served;
    LThreadRunOnMainThread poster;
    int runs = 0;
    std::function<void()> again = [&] {
        if (++runs < 10) poster.RunOnMainThread(new Item(again));
    };
    poster.RunOnMainThread(new Item(again));
    EXPECT_TRUE(LProcessClearCurrentEvents());
    EXPECT_EQ(runs, 1);
    EXPECT_TRUE(LProcessClearEventQueue());
    EXPECT_GT(runs, 1);
    EXPECT_LT(runs, 10);
    while (runs < 10) LProcessClearEventQueue();
    EXPECT_FALSE(LProcessClearCurrentEvents());
}
