// LStringLongTemplate<T>: a heap string that grows on demand, for char (UTF-8), unsigned short (UTF-16, "Unicode" in
// this library's names) and wchar_t (UTF-32). LUTF8StringLongRef: a view of a UTF-8 one as a C string.
//
// A string owns its buffer (from new[]; null until the first operation that allocates). Once there is one,
// length < capacity holds and the text is terminated after every operation, also when it throws. Lengths and capacities
// count characters of T and are 32-bit; whatever would need more than 4,294,967,295 bytes throws std::bad_alloc and
// leaves the text as it was. Texts given as arguments may lie in the string's own buffer; null counts as "". One thread
// at a time.
#pragma once

#include <cstdarg>
#include <cstdint>

template <class T>
class LStringLongTemplateWriter;

template <class T>
class LStringLongTemplate {
public:
    LStringLongTemplate() = default;
    ~LStringLongTemplate() { delete[] pBuffer; }
    LStringLongTemplate(const LStringLongTemplate&) = delete;
    LStringLongTemplate& operator=(const LStringLongTemplate&) = delete;

    // Makes the capacity (terminator included) exactly n if it is smaller; never shrinks, keeps the text. There is no
    // rounding up: who wants geometric growth asks for it.
    void GrowToSize(unsigned long n);

    // Takes over the buffer of `other`, which is empty (no buffer) afterwards. Itself: nothing happens.
    void Assign(LStringLongTemplate& other);

    // Replaces the text; the new buffer fits exactly.
    LStringLongTemplate& operator=(const T* text);

    // Adds `text` at the end; when the buffer must grow, the new one fits exactly.
    void Append(const T* text);

    // Replace the text with formatted text, or add it at the end, in the dialect of LPrintf.h. The capacity is at least
    // 260 afterwards and grows by a factor of four. Result: the total length (0 for a null format).
    unsigned long sprintf(const char* format, ...);
    unsigned long tsprintfappend(const char* format, ...);
    unsigned long vsprintf(const char* format, va_list args);
    unsigned long tvsprintfappend(const char* format, va_list args);

    const T* Get() const { return pBuffer ? pBuffer : &cEmpty; }  // never null, terminated
    T* Buffer() { return pBuffer; }                               // null without a buffer
    uint32_t Length() const { return length; }
    uint32_t Capacity() const { return capacity; }

    // For those who fill Buffer() themselves after GrowToSize: n characters are text from now on; terminates behind
    // them. n is cut to capacity - 1; without a buffer nothing happens.
    void SetLength(unsigned long n);
    void Clear() { SetLength(0); }  // keeps the buffer

private:
    friend class LStringLongTemplateWriter<T>;
    static constexpr T cEmpty = T();

    unsigned long Print(bool append, const char* format, va_list args);

    T* pBuffer = nullptr;
    uint32_t length = 0;    // without the terminator
    uint32_t capacity = 0;  // with it
};

template <>
unsigned long LStringLongTemplate<char>::sprintf(const char* format, ...);
template <>
unsigned long LStringLongTemplate<char>::tsprintfappend(const char* format, ...);
template <>
unsigned long LStringLongTemplate<char>::vsprintf(const char* format, va_list args);
template <>
unsigned long LStringLongTemplate<char>::tvsprintfappend(const char* format, va_list args);
template <>
unsigned long LStringLongTemplate<char>::Print(bool append, const char* format, va_list args);

extern template class LStringLongTemplate<char>;
extern template class LStringLongTemplate<unsigned short>;
extern template class LStringLongTemplate<wchar_t>;

// The text of a long string as a C string; "" where the string has no buffer. Valid while the string is unchanged.
class LUTF8StringLongRef {
public:
    explicit LUTF8StringLongRef(const LStringLongTemplate<char>& string) : pText(string.Get()) {}
    operator const char*() const { return pText; }

private:
    const char* pText;
};
