// Bounded copies into fixed buffers, under names of the library's own: strlcpy and wcslcpy are missing from some C
// libraries and present in others. Texts are cut silently and always terminated. For char, unsigned short (UTF-16) and
// wchar_t; sizes count characters with the terminator. Cuts fall anywhere: where a UTF-8 character must stay whole,
// utf8strlcpy is the one to call. Pure functions, any thread.
#pragma once

#include <algorithm>
#include <string>

// Names, keys and paths live in buffers of this many bytes, so they hold at most 259.
inline constexpr unsigned long LTextBufferSize = 260;

// Copies at most size - 1 characters of `source` (null counts as empty) and terminates. Gives the length of the whole
// source: the text was cut if that is not below `size`. The two may overlap. With size 0 nothing is written.
template <class T>
unsigned long LCopyBounded(T* destination, const T* source, unsigned long size) {
    using Traits = std::char_traits<T>;
    const unsigned long length = source ? Traits::length(source) : 0;
    if (!size) return length;
    const unsigned long copied = std::min(length, size - 1);
    if (copied) Traits::move(destination, source, copied);
    destination[copied] = T();
    return length;
}

// Adds `source` behind the text in `destination`, a buffer of `size` characters, by the same rules. Gives the length
// that the whole text would have had. A destination without a terminator inside `size` is left alone.
template <class T>
unsigned long LAppendBounded(T* destination, const T* source, unsigned long size) {
    const auto used = static_cast<unsigned long>(std::find(destination, destination + size, T()) - destination);
    return used + LCopyBounded(destination + used, source, size - used);
}
