// UTF-8 texts: measuring and copying them without splitting a character, and conversion from and to UTF-32 (wchar_t).
//
// The walkers take a character's length from its lead byte and check nothing else; a sequence that the terminator cuts
// short counts as one character that ends there. Null texts count as "". Pure functions, any thread; source and
// destination of a conversion must not overlap.
#pragma once

// Characters before the terminator.
unsigned long utf8strlen(const char* s);

// Copies whole characters, at most size - 1 bytes, and terminates. Gives the bytes copied (not the source's length).
// With size 0 nothing is written. The texts may overlap.
unsigned long utf8strlcpy(char* dst, const char* src, unsigned long size);

// The byte offset at which character number charIndex (from 0) begins; the text's length if it has fewer.
unsigned long LCharsetsUTF8CharIndexToByteIndex(const char* s, unsigned long charIndex);

// The number of characters that begin before byte byteIndex; all of them if the text is shorter.
unsigned long LCharsetsUTF8ByteIndexToCharIndex(const char* s, unsigned long byteIndex);

// Decode into `size` values. 0: everything converted; 1: the size limit, which counts source bytes with the terminator,
// was reached; 2: stopped at illegal input (overlong, surrogate, above U+10FFFF, cut short). The output is terminated
// and has the characters before that point. Size 0 writes nothing and gives 1.
unsigned long LCopyUTF32FromUTF8Native(wchar_t* dst, const char* src, unsigned long size);
unsigned long LCopyUTF32FromUTF8(wchar_t* dst, const char* src, unsigned long size);

// Encode into `size` bytes, whole characters only, terminated. 0: done, or cut at the size; 2: a value above 0x10FFFF
// or below 0 was replaced by U+FFFD. Surrogates are encoded as they are. Size 0 writes nothing and gives 0.
unsigned long LCopyUTF8FromUTF32Native(char* dst, const wchar_t* src, unsigned long size);
unsigned long LCopyUTF8FromUTF32(char* dst, const wchar_t* src, unsigned long size);
