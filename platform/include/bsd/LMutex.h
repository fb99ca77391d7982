// LMutex, LMutexLock: the tree's mutex and its scope lock, with the annotations that clang's thread-safety analysis
// checks (as clang-tidy does; other compilers see nothing of them). A mutex is a leaf: whoever holds one calls
// no handler and makes no blocking system call, unless the declaration of the mutex says so.
#pragma once

#include <mutex>

#if defined(__clang__)
#define L_ANNOTATION(x) __attribute__((x))
#else
#define L_ANNOTATION(x)
#endif

#define L_CAPABILITY(name) L_ANNOTATION(capability(name))
#define L_SCOPED_CAPABILITY L_ANNOTATION(scoped_lockable)
#define L_GUARDED_BY(m) L_ANNOTATION(guarded_by(m))
#define L_PT_GUARDED_BY(m) L_ANNOTATION(pt_guarded_by(m))
#define L_REQUIRES(...) L_ANNOTATION(requires_capability(__VA_ARGS__))
#define L_EXCLUDES(...) L_ANNOTATION(locks_excluded(__VA_ARGS__))
#define L_ACQUIRE(...) L_ANNOTATION(acquire_capability(__VA_ARGS__))
#define L_RELEASE(...) L_ANNOTATION(release_capability(__VA_ARGS__))
#define L_TRY_ACQUIRE(...) L_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define L_NO_THREAD_SAFETY_ANALYSIS L_ANNOTATION(no_thread_safety_analysis)

class L_CAPABILITY("mutex") LMutex {
public:
    LMutex() = default;
    LMutex(const LMutex&) = delete;
    LMutex& operator=(const LMutex&) = delete;

    void lock() L_ACQUIRE() { m.lock(); }
    void unlock() L_RELEASE() { m.unlock(); }
    bool try_lock() L_TRY_ACQUIRE(true) { return m.try_lock(); }

    // For std::condition_variable only: wait with a std::unique_lock that adopts it.
    std::mutex& Native() { return m; }

private:
    std::mutex m;
};

// Holds a mutex for a scope; may be given up early (Unlock) and taken again (Lock).
class L_SCOPED_CAPABILITY LMutexLock {
public:
    explicit LMutexLock(LMutex& mutex) L_ACQUIRE(mutex) : m(mutex) { m.lock(); }
    ~LMutexLock() L_RELEASE() {
        if (held) m.unlock();
    }
    LMutexLock(const LMutexLock&) = delete;
    LMutexLock& operator=(const LMutexLock&) = delete;

    void Unlock() L_RELEASE() {
        held = false;
        m.unlock();
    }
    void Lock() L_ACQUIRE() {
        m.lock();
        held = true;
    }

private:
    LMutex& m;
    bool held = true;
};
