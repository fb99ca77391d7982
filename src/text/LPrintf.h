// The library's formatted printing: one engine (tplprintf) for the three writers of LStringWriters.h, and its entry
// points.
//
// The dialect: %[digits and points]conversion.
//   %%         one percent sign; digits are dropped
//   %s         the whole text: width and precision are ignored; null prints nothing
//   e f g a    (also E F G A) a double
//   %p         a pointer
//   any other  one 32-bit word (unsigned int); 64-bit integers can't be printed
// Everything but %% and %s is formatted by the system's formatter, one conversion at a time, cut to 259 characters.
// There are no flags but 0, no * and no length modifiers: such a character is itself taken as the conversion, uses up
// one word and prints nothing ("%ld" of 42 prints "d"; so does "%n" print nothing, and store nothing). A format that
// ends inside a conversion prints nothing for it. The compiler's format checks don't fit this dialect, so no attributes
// here.
//
// The target may itself be an argument or the format: then the text is made aside first. Null formats print nothing and
// give 0. No shared state: any thread, but one per target.
#pragma once

#include "text/LStringLong.h"
#include "text/LStringWriters.h"

#include <cstdarg>

// Prints into any writer and gives its result: the string's total length, or the position of a fixed buffer. Doesn't
// terminate. `args` is left as it was found. Arguments that lie in the writer's target are the entry points' business.
template <class W, class C>
unsigned long tplprintf(W& writer, const C* format, va_list args);

extern template unsigned long tplprintf(LStringLongTemplateWriter<char>&, const char*, va_list);
extern template unsigned long tplprintf(LStringLongTemplateAppender<char>&, const char*, va_list);
extern template unsigned long tplprintf(LFixedLengthStringWriterTemplate<char>&, const char*, va_list);

// Whether the format, or a text that it would print, begins in [begin, end).
bool LFormatReadsFrom(const char* begin, const char* end, const char* format, va_list args);

// At most size - 1 characters and a terminator. Gives the number of characters stored, whatever was dropped. With size
// 0 nothing is written. Allocates nothing, unless an argument lies in `buf`.
unsigned long tplsnprintf(char* buf, unsigned long size, const char* format, ...);
unsigned long tplvsnprintf(char* buf, unsigned long size, const char* format, va_list args);

// Goes on at the writer's position, doesn't terminate; gives the position.
unsigned long sprintf(LFixedLengthStringWriterTemplate<char>& writer, const char* format, ...);

// As the string's members of the same names.
unsigned long sprintf(LStringLongTemplate<char>& string, const char* format, ...);
unsigned long tsprintfappend(LStringLongTemplate<char>& string, const char* format, ...);

// To standard output, by the system's vprintf: its format language, not the one above.
void tprintf(const char* format, ...);
