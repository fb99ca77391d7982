// LStringListTemplate<T>: a list of separately allocated C strings, owned, in an array that is also null-terminated.
// The array starts with 256 slots, grows by a factor of eight and never shrinks. Instantiated for char. Allocation
// failures throw std::bad_alloc and leave the list as it was. One thread at a time.
#pragma once

#include <cstdint>

template <class T>
class LStringListTemplate {
public:
    LStringListTemplate();
    ~LStringListTemplate();
    LStringListTemplate(const LStringListTemplate&) = delete;
    LStringListTemplate& operator=(const LStringListTemplate&) = delete;

    // Appends an empty string with room for `size` characters (terminator included; at least one) for the caller to
    // fill. The list owns it.
    T* Add(unsigned long size);

    // Appends a copy of `text` (null counts as ""), cut to 259 characters; gives the copy.
    T* AddText(const T* text);

    // Frees one string; the order of the others stays. An index that is not below Count() does nothing.
    void Delete(unsigned long index);
    void Clear();  // frees all strings, keeps the array

    uint32_t Count() const { return count; }
    uint32_t Capacity() const { return capacity; }  // strings that fit before the array grows
    T* operator[](unsigned long index) const { return pItems[index]; }
    T* const* Items() const { return pItems; }  // Count() strings and a null; valid until the next Add

private:
    T** pItems;
    uint32_t count = 0;
    uint32_t capacity;
};

extern template class LStringListTemplate<char>;
