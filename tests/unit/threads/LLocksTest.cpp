#include "threads/LLockObject.h"
#include "threads/LLockObjectShared.h"
#include "threads/LSystemLockMutex.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <string>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;

// A lock name of this process, whose semaphore is removed at the end.
class LockName {
public:
    LockName() : name("test" + std::to_string(::getpid())) { Remove(); }
    ~LockName() { Remove(); }
    LockName(const LockName&) = delete;
    LockName& operator=(const LockName&) = delete;

    const char* Get() const { return name.c_str(); }
    int Set() const { return ::semget(LSystemLockMutex::KeyOfName(Get()), 0, 0); }

private:
    void Remove() const {
        if (Set() >= 0) ::semctl(Set(), 0, IPC_RMID);
    }
    const std::string name;
};

// A child process that runs `work` and then waits to be killed.
template <class Work>
pid_t Child(Work work) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        work();
        char done = 1;
        if (::write(ends[1], &done, 1) == 1) ::pause();
        ::_exit(0);
    }
    char done = 0;
    EXPECT_EQ(::read(ends[0], &done, 1), 1);
    ::close(ends[0]);
    ::close(ends[1]);
    return child;
}

void Kill(pid_t child) {
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

}  // namespace

TEST(LLockObject, GuardsAndIsRecursive) {
    LLockObject lock;
    int count = 0;  // a race detector sees what the lock doesn't guard
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++)
        threads.emplace_back([&] {
            for (int i = 0; i < 1'000; i++) {
                lock.Lock();
                lock.Lock();
                count++;
                lock.Unlock();
                lock.Unlock();
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(count, 4'000);
}

TEST(LLockObjectShared, WritersAloneReadersTogether) {
    LLockObjectShared lock;
    int value = 0;
    std::atomic<int> readersInside{0}, most{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; t++)
        threads.emplace_back([&] {
            for (int i = 0; i < 500; i++) {
                lock.LockExclusive();
                EXPECT_EQ(readersInside, 0);
                value++;
                if (i % 2) {
                    lock.DowngradeLock();
                    lock.UnlockShared();
                } else {
                    lock.UnlockExclusive();
                }
            }
        });
    for (int t = 0; t < 3; t++)
        threads.emplace_back([&, upgrades = t == 0] {  // one at a time may
            for (int i = 0; i < 500; i++) {
                lock.LockShared();
                const int before = value;
                most = std::max(most.load(), ++readersInside);
                std::this_thread::yield();
                EXPECT_EQ(value, before);
                readersInside--;
                if (!upgrades) {
                    lock.UnlockShared();
                    continue;
                }
                lock.UpgradeLock();
                EXPECT_EQ(readersInside, 0);
                value++;
                lock.UnlockExclusive();
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(value, 1'500);
}

TEST(LLockObjectShared, AWriterWaitsForEveryReader) {
    LLockObjectShared lock;
    lock.LockShared();
    lock.LockShared();
    std::atomic<bool> isIn{false};
    std::thread writer([&] {
        lock.LockExclusive();
        isIn = true;
        lock.UnlockExclusive();
    });
    lock.UnlockShared();
    EXPECT_FALSE(isIn);
    lock.UnlockShared();
    writer.join();
    EXPECT_TRUE(isIn);
    lock.LockShared();
    lock.UpgradeLock();  // the only reader
    std::thread reader([&] {
        lock.LockShared();
        EXPECT_FALSE(isIn);
        lock.UnlockShared();
    });
    isIn = false;
    lock.DowngradeLock();
    reader.join();  // is let in beside it
    lock.UnlockShared();
}

TEST(LSystemLockMutex, OneProcessAtATime) {
    EXPECT_EQ(LSystemLockMutex::KeyOfName("UID"), 367844708);
    const LockName name;
    LSystemLockMutex lock(name.Get());
    ASSERT_GE(name.Set(), 0) << "this system has no System V semaphores";
    const pid_t holder = Child([&] { LSystemLockMutex(name.Get()).LockForever(); });
    for (const auto& [timeout, tries] : {std::pair(0u, 1), std::pair(20u, 2), std::pair(25u, 3)}) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_FALSE(lock.Lock(timeout));
        const auto elapsed = std::chrono::steady_clock::now() - start;
        EXPECT_GE(elapsed, tries * 10ms) << timeout;
        EXPECT_LT(elapsed, tries * 10ms + 2s) << timeout;
    }
    lock.Unlock();  // isn't held: changes nothing
    EXPECT_FALSE(lock.Lock(0));
    Kill(holder);  // frees it
    EXPECT_TRUE(lock.Lock(1'000));
    LSystemLockMutex other(name.Get());
    EXPECT_FALSE(other.Lock(0));
    lock.Unlock();
    lock.Unlock();
    other.LockForever();
    EXPECT_TRUE(other.IsHeld());
    EXPECT_FALSE(lock.Lock(0)) << "giving it back twice lets two in";
    other.Unlock();
}

// The maker died before the semaphore was free for the first time.
TEST(LSystemLockMutex, AHalfMadeOneIsFinished) {
    const LockName name;
    ASSERT_GE(::semget(LSystemLockMutex::KeyOfName(name.Get()), 1, IPC_CREAT | IPC_EXCL | 0666), 0);
    LSystemLockMutex lock(name.Get());
    EXPECT_TRUE(lock.Lock(0));
}

TEST(LSystemLockMutex, WithoutASemaphore) {
    const LockName name;
    LSystemLockMutex lock(name.Get());
    ::semctl(name.Set(), 0, IPC_RMID);
    EXPECT_FALSE(lock.Lock(kSignalNoTimeOut));
    lock.LockForever();
    EXPECT_FALSE(lock.IsHeld());
    lock.Unlock();
}
