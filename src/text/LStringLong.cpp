#include "text/LStringLong.h"

#include "text/LAllocate.h"
#include "text/LPrintf.h"
#include "text/LStringWriters.h"

#include <algorithm>
#include <string>
#include <utility>

namespace {

constexpr unsigned long cPrintedCapacity = 260;  // what a formatted text starts with

// Terminates at the length on every way out of the printing engine, an exception included.
class TerminateAtExit {
public:
    explicit TerminateAtExit(LStringLongTemplate<char>& string) : s(string) {}
    ~TerminateAtExit() { s.SetLength(s.Length()); }
    TerminateAtExit(const TerminateAtExit&) = delete;
    TerminateAtExit& operator=(const TerminateAtExit&) = delete;

private:
    LStringLongTemplate<char>& s;
};

}  // namespace

template <class T>
void LStringLongTemplate<T>::GrowToSize(unsigned long n) {
    if (capacity >= n) return;
    T* const buffer = LNewArray<T>(n);
    std::copy_n(pBuffer, length, buffer);
    buffer[length] = T();
    delete[] std::exchange(pBuffer, buffer);
    capacity = static_cast<uint32_t>(n);
}

template <class T>
void LStringLongTemplate<T>::Assign(LStringLongTemplate& other) {
    if (&other == this) return;
    delete[] std::exchange(pBuffer, std::exchange(other.pBuffer, nullptr));
    length = std::exchange(other.length, 0);
    capacity = std::exchange(other.capacity, 0);
}

template <class T>
LStringLongTemplate<T>& LStringLongTemplate<T>::operator=(const T* text) {
    const uint64_t count = text ? std::char_traits<T>::length(text) : 0;
    T* const buffer = LNewArray<T>(count + 1);
    std::copy_n(text, count, buffer);
    buffer[count] = T();
    delete[] std::exchange(pBuffer, buffer);  // only now: `text` may lie in the old one
    length = static_cast<uint32_t>(count);
    capacity = length + 1;
    return *this;
}

template <class T>
void LStringLongTemplate<T>::Append(const T* text) {
    const uint64_t count = text ? std::char_traits<T>::length(text) : 0;
    const uint64_t wanted = length + count + 1;
    T* const buffer = wanted > capacity ? LNewArray<T>(wanted) : pBuffer;
    std::char_traits<T>::move(buffer + length, text ? text : &cEmpty, count);
    if (buffer != pBuffer) {
        std::copy_n(pBuffer, length, buffer);
        delete[] std::exchange(pBuffer, buffer);  // only now: `text` may lie in the old one
        capacity = static_cast<uint32_t>(wanted);
    }
    SetLength(length + count);
}

template <class T>
void LStringLongTemplate<T>::SetLength(unsigned long n) {
    if (!pBuffer) return;
    length = static_cast<uint32_t>(std::min<unsigned long>(n, capacity - 1));
    pBuffer[length] = T();
}

template <>
unsigned long LStringLongTemplate<char>::Print(bool append, const char* format, va_list args) {
    // An argument (or the format) inside the own buffer would be overwritten while it is read, and its terminator with
    // it: such a text is made aside first.
    LStringLongTemplate aside;
    const bool isAliased = pBuffer && LFormatReadsFrom(pBuffer, pBuffer + capacity, format, args);
    if (isAliased) aside.Print(false, format, args);

    GrowToSize(cPrintedCapacity);
    const TerminateAtExit terminate(*this);
    if (!append) length = 0;
    LStringLongTemplateAppender<char> writer(*this);
    if (!isAliased) return tplprintf(writer, format, args);
    writer.AddText(aside.pBuffer, aside.length);
    return writer.Result();
}

template <>
unsigned long LStringLongTemplate<char>::sprintf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const unsigned long result = Print(false, format, args);
    va_end(args);
    return result;
}

template <>
unsigned long LStringLongTemplate<char>::tsprintfappend(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const unsigned long result = Print(true, format, args);
    va_end(args);
    return result;
}

template <>
unsigned long LStringLongTemplate<char>::vsprintf(const char* format, va_list args) {
    return Print(false, format, args);
}

template <>
unsigned long LStringLongTemplate<char>::tvsprintfappend(const char* format, va_list args) {
    return Print(true, format, args);
}

template class LStringLongTemplate<char>;
template class LStringLongTemplate<unsigned short>;
template class LStringLongTemplate<wchar_t>;
