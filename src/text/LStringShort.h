// LStringShortTemplate<T>: an inline text of up to 259 characters, for short formatted texts:
//
//     LStringShortTemplate<char> name(LStringPrintFormatTemplate<char>{"%s_%u"}, prefix, number);
//
// Always terminated; longer texts are cut. Copies like any value. One thread at a time.
#pragma once

#include "text/LCopyBounded.h"
#include "text/LPrintf.h"

#include <concepts>

// Marks the formatting constructor; holds the format (not owned).
template <class T>
struct LStringPrintFormatTemplate {
    const T* format;
};

template <class T>
class LStringShortTemplate {
public:
    LStringShortTemplate() { text[0] = T(); }

    // In the dialect of LPrintf.h. Never allocates.
    explicit LStringShortTemplate(LStringPrintFormatTemplate<T> format, ...) requires std::same_as<T, char> {
        va_list args;
        va_start(args, format);
        tplvsnprintf(text, LTextBufferSize, format.format, args);
        va_end(args);
    }

    const T* Get() const { return text; }

private:
    T text[LTextBufferSize];
};
