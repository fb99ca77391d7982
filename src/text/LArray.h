// LArray<T>: a fixed number of elements, allocated once and freed with the object. The count is not kept: its owner
// knows it. No lock, no bounds check.
#pragma once

#include "text/LAllocate.h"

template <class T>
class LArray {
public:
    // Elements are default-initialised (scalars are not set). Throws std::bad_alloc above 4,294,967,295 bytes.
    explicit LArray(unsigned long count) : pItems(LNewArray<T>(count)) {}
    ~LArray() { delete[] pItems; }
    LArray(const LArray&) = delete;
    LArray& operator=(const LArray&) = delete;

    T& operator[](unsigned long index) { return pItems[index]; }
    const T& operator[](unsigned long index) const { return pItems[index]; }
    T* Get() { return pItems; }
    const T* Get() const { return pItems; }

private:
    T* pItems;
};
