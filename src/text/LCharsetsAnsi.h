// The Western single-byte code page ("Ansi" in names), through the platform's strings: read as Windows Latin 1, written
// as ISO Latin 1 (so a euro sign can be read but not written). All or nothing: when a character is missing in the
// target, or the text doesn't fit with its terminator, the destination is "". Sizes and null texts as in
// LCharsetsUnicode.h; the two functions over char* may work in place. Any thread.
#pragma once

#include "text/LStringLong.h"

// The destination grows to the source's length + 1; they give its length.
unsigned long LCopyUnicodeFromAnsi(LStringLongTemplate<unsigned short>& dst, const LStringLongTemplate<char>& src);
unsigned long LCopyAnsiFromUnicode(LStringLongTemplate<char>& dst, const unsigned short* src);
unsigned long LCopyAnsiFromUnicode(LStringLongTemplate<char>& dst, const LStringLongTemplate<unsigned short>& src);

// Texts go through UTF-16 (illegal UTF-8 ends them, LCharsetsUTF8.h); up to 4,096 characters allocate no scratch here.
void LCopyAnsiFromUTF8(char* dst, const char* src, unsigned long size);
void LCopyUTF8FromAnsi(char* dst, const char* src, unsigned long size);
