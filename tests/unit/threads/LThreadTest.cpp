#include "threads/LThread.h"
#include "ThreadPolicy.h"
#include "threads/LDetachedThread.h"
#include "threads/LProcessRun.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

namespace {

class Worker : public LThread {
public:
    explicit Worker(std::function<void(Worker&)> function) : body(std::move(function)) {}
    ~Worker() override { StopThreadNow(); }
    void ThreadFunction() override {
        runs++;
        body(*this);
    }
    void WaitForEnd() { StopThreadNow(); }

    std::atomic<int> runs{0};

private:
    std::function<void(Worker&)> body;
};

void UntilStopped(LThread& thread) {
    EXPECT_EQ(thread.ProcessWaitSignal(LSignalObject(), kSignalNoTimeOut), waitStopped);
}

}  // namespace

TEST(LThread, RunsOneBodyAtATimeAndAgain) {
    Worker worker(UntilStopped);
    worker.StopThreadSoon();  // of no thread: taken back by the start
    worker.Start(31);
    EXPECT_TRUE(worker.IsRunning());
    worker.Start(31);
    worker.WaitForEnd();
    EXPECT_EQ(worker.runs, 1);
    EXPECT_FALSE(worker.IsRunning());
    EXPECT_EQ(worker.Port(), LThread::kNoPort);
    worker.Start(31);
    EXPECT_FALSE(worker.IsToStop());
    worker.WaitForEnd();
    EXPECT_EQ(worker.runs, 2);

    // At every moment of a thread's life.
    for (int i = 0; i < 300; i++) {
        Worker brief([](Worker& self) { self.Start(0); });  // its own start does nothing
        brief.Start(0);
        if (i % 3 == 1) brief.Start(0);
        if (i % 3 == 2) brief.WaitForEnd();
    }
    const Worker never(UntilStopped);

    // Destroyed by its own body.
    std::atomic<bool> isGone{false};
    (new Worker([signal = &isGone](Worker& self) {
        std::atomic<bool>* const after = signal;  // this function goes with it
        delete &self;
        *after = true;
    }))->Start(0);
    while (!isGone) std::this_thread::yield();
}

TEST(LThread, WaitsEndWithAStopRequest) {
    LSignalObject set, unset, half;
    set.Signal();
    std::vector<int> results;
    Worker worker([&](Worker& self) {
        LSignalObjectGroup group, stopped;
        group.Add(set);
        group.Add(unset);
        results = {self.ProcessWaitSignal(set, kSignalNoTimeOut),
                   self.ProcessWaitSignal(unset, 0),
                   self.ProcessWaitSignalObjectGroup(group, kSignalNoTimeOut),
                   group.Count(),
                   group.IsSignaled(),
                   self.ProcessWait(0)};
        set.Reset();
        results.push_back(group.IsSignaled());  // it holds what was set only
        half.Signal();
        results.push_back(self.ProcessWait(kSignalNoTimeOut));
        set.Signal();
        stopped.Add(set);
        results.push_back(self.ProcessWaitSignal(set, kSignalNoTimeOut));
        results.push_back(self.ProcessWaitSignalObjectGroup(stopped, kSignalNoTimeOut));
        // A group without a place left still sees the request.
        LSignalObjectGroup full;
        for (int i = 0; i < 300; i++) full.Add(unset);
        results.push_back(self.ProcessWaitSignalObjectGroup(full, kSignalNoTimeOut));
    });
    worker.Start(0);
    half.WaitSignal(kSignalNoTimeOut);
    worker.WaitForEnd();
    EXPECT_EQ(results,
              (std::vector<int>{waitSet, waitTimedOut, waitSet, 3, 1, 0, 0, 1, waitStopped, waitStopped, waitStopped}));
}

TEST(LThread, PrioritiesAreRequests) {
    Worker worker(UntilStopped);
    for (const int priority : {31, LThread::kTimeConstraintPriority}) {
        worker.Start(priority);
        worker.SetPriority(priority);
        const auto request = platform::LastPolicyRequest();
        ASSERT_TRUE(request);
        EXPECT_EQ(request->thread, worker.Port());
        EXPECT_EQ(request->isTimeConstraint, priority == LThread::kTimeConstraintPriority);
        EXPECT_EQ(request->priority, priority == LThread::kTimeConstraintPriority ? 0 : priority);
        worker.WaitForEnd();
    }
}

TEST(LDetachedThread, GoesByItselfOrWithItsOwner) {
    std::atomic<int> alive{0}, ended{0};
    class Detached : public LDetachedThread {
    public:
        Detached(std::atomic<int>& count, std::function<void(Detached&)> function)
            : alive(count), body(std::move(function)) {
            alive++;
        }
        ~Detached() override {
            StopThreadNow();
            alive--;
        }
        void ThreadFunction() override { body(*this); }

    private:
        std::atomic<int>& alive;
        const std::function<void(Detached&)> body;
    };
    LDetachedThreadsOwner owner;
    const auto start = [&](std::function<void(Detached&)> body) {
        auto* const thread = new Detached(alive, std::move(body));
        owner.AddThread(thread);
        thread->StartDetached(owner, 31);
        return thread;
    };
    const auto untilStopped = [&](LThread& self) {
        UntilStopped(self);
        ended++;
    };
    owner.StopThreadsNow();
    for (int i = 0; i < 3; i++) start(untilStopped);
    owner.AddThread(new Detached(alive, untilStopped));  // never started
    owner.StopThreadsNow();
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(ended, 3);
    owner.Destruct(nullptr);
    owner.Destruct(start(untilStopped));
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(ended, 4);
    start([&](Detached& self) { owner.Destruct(&self); });  // its own goes once it has ended

    // Ends of all kinds side by side; one stops all others, and goes on.
    for (int i = 0; i < 200; i++) {
        LDetachedThreadsOwner one;
        for (int j = 0; j < 3; j++) {
            auto* const thread = new Detached(alive, [&, j](LThread& self) {
                if (j == 1) UntilStopped(self);
                if (j == 2) one.StopThreadsNow();
            });
            one.AddThread(thread);
            thread->StartDetached(one, 0);
        }
        if (i % 2) one.StopThreadsSoon();
    }
    EXPECT_EQ(alive, 0);
}

TEST(ProcessRunData, RunsACommandThatNobodyNeedWaitFor) {
    const struct {
        const char* command;
        int status, exitCode;
    } rows[] = {
        {"exit 3", 0, 3}, {"cat", 0, 0}, {"", 0, 0}, {"no-such-command- 2>/dev/null", 0, 127}, {"kill -9 $$", 0, -1}};
    for (const auto& row : rows) {
        auto* const data = new ProcessRunData;
        data->commandLine = row.command;
        std::thread runner([=] { ProcessRunThreadCallback(data); });
        data->doneSignal.WaitSignal(kSignalNoTimeOut);
        EXPECT_EQ(data->status, row.status) << row.command;
        EXPECT_EQ(data->exitCode, row.exitCode) << row.command;
        data->Release();
        runner.join();
    }
}
