// The output sinks of the printing engine (LPrintf.h): the end of a long string, and a fixed buffer that drops what
// does not fit. They live for one call, on its stack. AddText adds what AddChar would add one by one, faster.
#pragma once

#include "text/LStringLong.h"

#include <algorithm>
#include <cstdint>
#include <string>

// Adds at the end of a long string. The terminator is left to the function that made the writer; the capacity grows by
// a factor of four before the character that would fill it is counted, so that a failed growth leaves a string with
// room for its terminator. The string must not change otherwise meanwhile, nor may the text added lie in it.
template <class T>
class LStringLongTemplateWriter {
public:
    explicit LStringLongTemplateWriter(LStringLongTemplate<T>& string) : pString(&string) {}

    void AddChar(T c) {
        if (uint64_t{pString->length} + 1 >= pString->capacity) Grow(1);
        pString->pBuffer[pString->length++] = c;
    }

    void AddText(const T* text, size_t count) {
        if (pString->length + uint64_t{count} >= pString->capacity) Grow(count);
        std::char_traits<T>::copy(pString->pBuffer + pString->length, text, count);
        pString->length += static_cast<uint32_t>(count);
    }

    unsigned long Result() const { return pString->length; }  // the total length

private:
    void Grow(uint64_t more) {
        uint64_t capacity = pString->capacity ? pString->capacity : 1;
        while (pString->length + more >= capacity) capacity *= 4;
        pString->GrowToSize(capacity);  // refuses what passes 32 bits
    }

    LStringLongTemplate<T>* pString;
};

// The same rule; the entry points that append use this one and leave the text in place.
template <class T>
class LStringLongTemplateAppender : public LStringLongTemplateWriter<T> {
public:
    using LStringLongTemplateWriter<T>::LStringLongTemplateWriter;
};

// Stores up to `limit` characters at `destination` (not owned; room for a terminator is on top of that) and drops the
// rest. Never terminates: the function that made the writer does.
template <class T>
class LFixedLengthStringWriterTemplate {
public:
    LFixedLengthStringWriterTemplate(T* destination, uint32_t characterLimit, uint32_t startPosition = 0)
        : pDestination(destination), position(startPosition), limit(characterLimit) {}

    void AddChar(T c) {
        if (position < limit) pDestination[position++] = c;
    }

    void AddText(const T* text, size_t count) {
        if (position >= limit) return;
        const size_t stored = std::min<size_t>(count, limit - position);
        std::char_traits<T>::copy(pDestination + position, text, stored);
        position += static_cast<uint32_t>(stored);
    }

    unsigned long Result() const { return position; }  // characters stored
    T* Destination() const { return pDestination; }
    uint32_t Limit() const { return limit; }

private:
    T* pDestination;
    uint32_t position;
    uint32_t limit;
};

// Adds all of `text` (null counts as "").
template <class W, class C>
void tplstrcpy(W& writer, const C* text) {
    if (text) writer.AddText(text, std::char_traits<C>::length(text));
}
