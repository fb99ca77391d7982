// UTF-16 texts ("Unicode" in names): conversion from and to UTF-32 and UTF-8, and big-endian fields. One unit is one
// character: surrogates are not paired, so a pair becomes two three-byte sequences in UTF-8, and a value above 0xFFFF
// keeps its low 16 bits. Sizes count characters of the destination, terminator included; every destination is
// terminated, with size 0 nothing is written. Null texts count as empty. Any thread; source and destination must not
// overlap.
#pragma once

#include "text/LStringLong.h"

// Units before the terminator.
unsigned long lstrlen(const unsigned short* s);

// At most size - 1 values, each cut to 16 bits; gives dst.
unsigned short* LCopyUnicodeFromUTF32(unsigned short* dst, const wchar_t* src, unsigned long size);
// At most size - 1 units.
void LCopyUTF32FromUnicode(wchar_t* dst, const unsigned short* src, unsigned long size);

// From UTF-8, until illegal input or the limit, which counts source bytes (LCharsetsUTF8.h). Without a size: 260.
void LCopyUnicodeFromUTF8(unsigned short* dst, const char* src, unsigned long size);
void LCopyUnicodeFromUTF8(unsigned short* dst, const char* src);
// To UTF-8, whole characters only. Without a size: 260.
void LCopyUTF8FromUnicode(char* dst, const unsigned short* src, unsigned long size);
void LCopyUTF8FromUnicode(char* dst, const unsigned short* src);

// The same for whole texts: the destination grows (to the source's length + 1, and 6 times it + 1). They give its
// length.
unsigned long LCopyUnicodeFromUTF8(LStringLongTemplate<unsigned short>& dst, const LStringLongTemplate<char>& src);
unsigned long LCopyUTF8FromUnicode(LStringLongTemplate<char>& dst, const LStringLongTemplate<unsigned short>& src);
unsigned long LCopyFromUnicode(LStringLongTemplate<char>& dst, const unsigned short* src);

// For fixed-length big-endian fields of `count` units. With `terminate`: the units before the source's terminator (at
// most count) and a 0, so dst needs count + 1; gives the number of units copied. Without: filled up with big-endian
// spaces, no terminator; gives count.
unsigned long LCopyToBigEndianUnicode(unsigned short* dst, const unsigned short* src, unsigned long count,
                                      bool terminate);
