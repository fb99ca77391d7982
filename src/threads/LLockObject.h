// LLockObject: the plain mutex. Recursive: its holder may take it again, and gives it back as often. Any thread.
#pragma once

#include <pthread.h>

class LLockObject {
public:
    LLockObject();
    ~LLockObject() { ::pthread_mutex_destroy(&mutex); }
    LLockObject(const LLockObject&) = delete;
    LLockObject& operator=(const LLockObject&) = delete;

    void Lock() { ::pthread_mutex_lock(&mutex); }
    void Unlock() { ::pthread_mutex_unlock(&mutex); }

private:
    pthread_mutex_t mutex;
};

// Holds one for a scope.
class LLockObjectGuard {
public:
    explicit LLockObjectGuard(LLockObject& taken) : lock(taken) { lock.Lock(); }
    ~LLockObjectGuard() { lock.Unlock(); }
    LLockObjectGuard(const LLockObjectGuard&) = delete;
    LLockObjectGuard& operator=(const LLockObjectGuard&) = delete;

private:
    LLockObject& lock;
};
