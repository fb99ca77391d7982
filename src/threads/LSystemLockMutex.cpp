#include "threads/LSystemLockMutex.h"

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <sys/ipc.h>
#include <sys/sem.h>

namespace {

constexpr unsigned int kRetryMs = 10;
constexpr int kMakerPatience = 10;  // retries

// The system wants its callers to declare it.
union semun {
    int val;
    semid_ds* buf;
    unsigned short* array;
};

void Sleep() {
    timespec left{0, long{kRetryMs} * 1'000'000};
    while (::nanosleep(&left, &left) != 0 && errno == EINTR) continue;
}

}  // namespace

key_t LSystemLockMutex::KeyOfName(const char* name) {
    uint32_t key = 11223;
    for (const char* p = name; p && *p; p++) key = key * 32 + static_cast<uint32_t>(static_cast<signed char>(*p));
    return static_cast<key_t>(key);
}

LSystemLockMutex::LSystemLockMutex(const char* name) {
    const key_t key = KeyOfName(name);
    semaphoreSet = ::semget(key, 1, IPC_CREAT | IPC_EXCL | 0666);
    if (semaphoreSet < 0) {
        if (errno == EEXIST) Attach(key);
        return;
    }
    semun free{};
    free.val = 1;
    ::semctl(semaphoreSet, 0, SETVAL, free);
}

void LSystemLockMutex::Attach(key_t key) {
    semaphoreSet = ::semget(key, 0, 0);
    if (semaphoreSet < 0) return;
    // Whoever made it sets it to "free" a moment later. If that one was killed in between, nobody ever would.
    for (int tries = 0;; tries++) {
        semid_ds state{};
        semun argument{};
        argument.buf = &state;
        // In this order: one that was taken by now tells so by its time.
        if (::semctl(semaphoreSet, 0, GETVAL) != 0) return;
        if (::semctl(semaphoreSet, 0, IPC_STAT, argument) != 0 || state.sem_otime != 0) return;
        if (tries == kMakerPatience) break;
        Sleep();
    }
    semun free{};
    free.val = 1;
    ::semctl(semaphoreSet, 0, SETVAL, free);
}

bool LSystemLockMutex::Change(int by, int flags) {
    sembuf operation{0, static_cast<short>(by), static_cast<short>(flags | SEM_UNDO)};
    return ::semop(semaphoreSet, &operation, 1) == 0;
}

bool LSystemLockMutex::Lock(unsigned int milliseconds) {
    for (;; milliseconds -= kRetryMs) {
        if (Change(-1, IPC_NOWAIT)) return isHeld = true;
        if (errno != EAGAIN) return false;
        Sleep();
        if (milliseconds <= kRetryMs) return false;
    }
}

void LSystemLockMutex::LockForever() {
    if (semaphoreSet < 0) return;
    do isHeld = Change(-1, 0);
    while (!isHeld && errno == EAGAIN);
}

void LSystemLockMutex::Unlock() {
    if (!isHeld) return;
    isHeld = false;
    Change(1, 0);
}
