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
