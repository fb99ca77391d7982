// LVector<T>: an array whose size is set explicitly; the storage always fits exactly (no growth reserve: every change
// of size reallocates and copies). No lock, no bounds check.
#pragma once

#include "text/LAllocate.h"

#include <algorithm>
#include <cstdint>
#include <memory>

template <class T>
class LVector {
public:
    LVector() = default;
    ~LVector() { delete[] pItems; }
    LVector(const LVector&) = delete;
    LVector& operator=(const LVector&) = delete;

    // The first min(old size, n) elements are kept, copied by assignment; further ones are default-initialised (scalars
    // are not set). The same size keeps the storage; 0 frees it. Throws std::bad_alloc above 4,294,967,295 bytes; when
    // that or an element's assignment throws, the vector is as before.
    void SetSize(unsigned long n) {
        if (n == size) return;
        std::unique_ptr<T[]> storage(n ? LNewArray<T>(n) : nullptr);
        if (pItems && storage) std::copy_n(pItems, std::min<unsigned long>(size, n), storage.get());
        delete[] pItems;
        pItems = storage.release();
        size = static_cast<uint32_t>(n);
    }

    uint32_t Size() const { return size; }
    T& operator[](unsigned long index) { return pItems[index]; }
    const T& operator[](unsigned long index) const { return pItems[index]; }
    T* Get() { return pItems; }  // null when the size is 0
    const T* Get() const { return pItems; }

private:
    T* pItems = nullptr;
    uint32_t size = 0;
};
