// LNewArray: the one place where the library's containers and strings allocate arrays. Sizes and lengths are 32-bit
// everywhere in the library, so a request of more than 4,294,967,295 bytes is refused here instead of relying on the
// allocator, which has such room on a 64-bit machine and would hand out blocks that 32-bit lengths can't describe.
#pragma once

#include <cstdint>
#include <limits>
#include <new>

inline constexpr uint64_t LMaxAllocationBytes = std::numeric_limits<uint32_t>::max();

// `count` elements from new[] (scalars stay uninitialised); the caller owns them and frees them with delete[].
// Throws std::bad_alloc or a child of it.
template <class T>
T* LNewArray(uint64_t count) {
    if (count > LMaxAllocationBytes / sizeof(T)) throw std::bad_array_new_length();
    return new T[count];
}
