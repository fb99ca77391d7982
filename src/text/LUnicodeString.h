// LUnicodeString: a UTF-16 text that somebody else owns, terminated by 0; null when empty. Any thread, while the text
// stays.
#pragma once

#include "text/LStringLong.h"

class LUnicodeString {
public:
    LUnicodeString() = default;
    explicit LUnicodeString(const unsigned short* text) : pText(text) {}

    // As LCFString's: surrogate pairs become one character of UTF-8, but stay two of UTF-32.
    void GetString(LStringLongTemplate<char>& out) const;
    void GetString(LStringLongTemplate<wchar_t>& out) const;

private:
    const unsigned short* pText = nullptr;
};
