// Guarded<T>: a value that any thread sets and reads; what test seams are made of. Static ones are made by `*new`, so
// that they outlive every thread.
#pragma once

#include <bsd/LMutex.h>

#include <utility>

namespace platform {

template <class T>
class Guarded {
public:
    explicit Guarded(T initial = T()) : value(std::move(initial)) {}

    T Get() {
        LMutexLock guard(mutex);
        return value;
    }
    void Set(T next) {
        LMutexLock guard(mutex);
        value = std::move(next);
    }

private:
    LMutex mutex;
    T value L_GUARDED_BY(mutex);
};

}  // namespace platform
