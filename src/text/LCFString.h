// LCFString: carries texts into and out of the platform's strings. Owns one string, or none. One thread at a time.
#pragma once

#include "text/LCFReference.h"
#include "text/LStringLong.h"

class LCFString : public LCFReference<CFStringRef> {
public:
    using LCFReference::LCFReference;

    // Holds a string made from UTF-8 text (null counts as ""). Text that is no UTF-8 becomes what the lenient decoder
    // makes of it: the characters before the first illegal one.
    void SetString(const char* s);

    // The text as UTF-8 or, unit by unit with surrogates left apart, as UTF-32; empty when nothing is held. The buffer
    // forms cut to size - 1, the UTF-8 one in front of a character; with size 0 nothing is written.
    void GetString(LStringLongTemplate<char>& out) const;
    void GetString(char* out, unsigned long size) const;
    void GetString(LStringLongTemplate<wchar_t>& out) const;
    void GetString(wchar_t* out, unsigned long size) const;
};
