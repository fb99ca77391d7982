#include "text/LStringList.h"

#include "text/LAllocate.h"
#include "text/LCopyBounded.h"

#include <algorithm>
#include <utility>

namespace {

constexpr uint32_t cFirstCapacity = 255;

}  // namespace

template <class T>
LStringListTemplate<T>::LStringListTemplate() : pItems(LNewArray<T*>(cFirstCapacity + 1)), capacity(cFirstCapacity) {
    pItems[0] = nullptr;
}

template <class T>
LStringListTemplate<T>::~LStringListTemplate() {
    Clear();
    delete[] pItems;
}

template <class T>
T* LStringListTemplate<T>::Add(unsigned long size) {
    if (count == capacity) {  // before the string is made, which would leak if this threw
        const uint64_t grown = uint64_t{count} * 8 + 7;
        T** const items = LNewArray<T*>(grown + 1);
        std::copy_n(pItems, uint64_t{count} + 1, items);
        delete[] std::exchange(pItems, items);
        capacity = static_cast<uint32_t>(grown);
    }
    T* const string = LNewArray<T>(std::max(size, 1ul));
    string[0] = T();
    pItems[count++] = string;
    pItems[count] = nullptr;
    return string;
}

template <class T>
T* LStringListTemplate<T>::AddText(const T* text) {
    const unsigned long length = text ? std::char_traits<T>::length(text) : 0;
    const unsigned long size = std::min(length + 1, LTextBufferSize);
    T* const string = Add(size);
    LCopyBounded(string, text, size);
    return string;
}

template <class T>
void LStringListTemplate<T>::Delete(unsigned long index) {
    if (index >= count) return;
    delete[] pItems[index];
    std::copy(pItems + index + 1, pItems + count + 1, pItems + index);  // the closing null too
    count--;
}

template <class T>
void LStringListTemplate<T>::Clear() {
    while (count) delete[] std::exchange(pItems[--count], nullptr);
}

template class LStringListTemplate<char>;
