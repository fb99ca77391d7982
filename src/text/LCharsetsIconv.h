// Named code pages, through iconv. A conversion stops at the first sequence that is illegal or that the target lacks,
// and where the output room ends; what was converted before stays, terminated (whole characters only: where the output
// fills the room exactly, its last character gives way to the terminator). Nothing is reported. A page that the system
// doesn't know gives "". Null texts count as "", with size 0 nothing is written; source and destination may overlap.
// Any thread.
#pragma once

#include "text/LStringLong.h"

// `size`: the output room in bytes. Without: strlen(src) + 1, which a "From" conversion soon fills ("From" gives UTF-8,
// "To" takes it). Into a long string: it grows to 6 times the source's length + 1 ("From") or that length + 1 ("To").
void LCopyFromISO88591(char* dst, const char* src);
void LCopyFromISO88591(char* dst, const char* src, unsigned long size);
void LCopyFromISO88591(LStringLongTemplate<char>& dst, const char* src);
void LCopyToISO88591(char* dst, const char* src);
void LCopyToISO88591(char* dst, const char* src, unsigned long size);
void LCopyToISO88591(LStringLongTemplate<char>& dst, const char* src);

// The same conversions as ISO-8859-1: bytes 0x80 to 0x9F are the C1 controls here, unlike in LCharsetsAnsi.h.
void LCopyFromWIN1252(char* dst, const char* src, unsigned long size);
void LCopyFromWIN1252(LStringLongTemplate<char>& dst, const char* src);
void LCopyToWIN1252(char* dst, const char* src, unsigned long size);
void LCopyToWIN1252(LStringLongTemplate<char>& dst, const char* src);

void LCopyFromISO88595(char* dst, const char* src, unsigned long size);
void LCopyFromISO88595(LStringLongTemplate<char>& dst, const char* src);
void LCopyToISO88595(char* dst, const char* src, unsigned long size);
void LCopyToISO88595(LStringLongTemplate<char>& dst, const char* src);

// No conversion: bounded copies (LCopyBounded); they give the source's length.
unsigned long LCopyFromSHIFTJIS932(char* dst, const char* src, unsigned long size);
unsigned long LCopyFromSHIFTJIS932(LStringLongTemplate<char>& dst, const char* src);
unsigned long LCopyToSHIFTJIS932(char* dst, const char* src, unsigned long size);
unsigned long LCopyToSHIFTJIS932(LStringLongTemplate<char>& dst, const char* src);
unsigned long LCopyFromEUCKR(char* dst, const char* src, unsigned long size);
unsigned long LCopyFromEUCKR(LStringLongTemplate<char>& dst, const char* src);
unsigned long LCopyToEUCKR(char* dst, const char* src, unsigned long size);
unsigned long LCopyToEUCKR(LStringLongTemplate<char>& dst, const char* src);
