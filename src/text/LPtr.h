// LPtr<T>: owns one object made with new, or none. Storing another object deletes the one held. Not for sharing between
// threads without a lock of the owner's.
//
// The field is cleared before the held object is deleted: a destructor that looks back through the LPtr (the helper's
// event object and its server know each other that way) sees null, not an object half destroyed.
#pragma once

#include <utility>

template <class T>
class LPtr {
public:
    LPtr() = default;
    explicit LPtr(T* object) : pObject(object) {}
    ~LPtr() { Reset(); }
    LPtr(const LPtr&) = delete;
    LPtr& operator=(const LPtr&) = delete;

    // Deletes the object held, then takes ownership of the new one (null is allowed). The one already held: nothing
    // happens.
    LPtr& operator=(T* object) {
        if (object == pObject) return *this;
        Reset();
        pObject = object;
        return *this;
    }

    // The loop is for a destructor that stores a successor of its object here.
    void Reset() {
        while (T* const old = std::exchange(pObject, nullptr)) delete old;
    }

    T* Get() const { return pObject; }
    T* operator->() const { return pObject; }
    T& operator*() const { return *pObject; }
    explicit operator bool() const { return pObject; }

private:
    T* pObject = nullptr;
};
