// Character classes and comparisons that know ASCII only. strcasecmp, tolower, isalnum and their kin follow setlocale:
// in a Latin-1 locale tolower(0xC3) is 0xE3, which tears a UTF-8 character apart. These never look at the locale; bytes
// of 0x80 and above are letters of no alphabet and equal only themselves. Pure functions, any thread.
#pragma once

#include <cstddef>

constexpr bool LIsAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}
constexpr bool LIsAsciiUpper(char c) {
    return c >= 'A' && c <= 'Z';
}
constexpr bool LIsAsciiLower(char c) {
    return c >= 'a' && c <= 'z';
}
constexpr bool LIsAsciiAlpha(char c) {
    return LIsAsciiUpper(c) || LIsAsciiLower(c);
}
constexpr bool LIsAsciiAlphaNumeric(char c) {
    return LIsAsciiAlpha(c) || LIsAsciiDigit(c);
}
constexpr char LAsciiToLower(char c) {
    return LIsAsciiUpper(c) ? static_cast<char>(c + ('a' - 'A')) : c;
}
constexpr char LAsciiToUpper(char c) {
    return LIsAsciiLower(c) ? static_cast<char>(c - ('a' - 'A')) : c;
}

// As strncasecmp in the "C" locale: at most `count` characters; negative, 0 or positive. Null counts as "".
constexpr int LAsciiCompareNoCase(const char* a, const char* b, size_t count) {
    if (!a) a = "";
    if (!b) b = "";
    for (size_t i = 0; i < count; i++) {
        const auto x = static_cast<unsigned char>(LAsciiToLower(a[i]));
        const auto y = static_cast<unsigned char>(LAsciiToLower(b[i]));
        if (x != y) return x < y ? -1 : 1;
        if (!x) break;
    }
    return 0;
}

// As strcasecmp in the "C" locale.
constexpr int LAsciiCompareNoCase(const char* a, const char* b) {
    return LAsciiCompareNoCase(a, b, static_cast<size_t>(-1));
}
