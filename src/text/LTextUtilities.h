// Small text routines: hexadecimal numbers, case, fields between markers, CSV and query-string items, passwords, and
// menu texts. Null texts count as "" unless a line says otherwise. Buffers are the caller's. Any thread, but for those
// that use the system's random numbers.
#pragma once

#include "text/LCopyBounded.h"

#include <algorithm>
#include <string_view>

// The value of the leading hexadecimal digits, modulo 2^32; 0 when there is none.
unsigned long atoh(const char* s);
unsigned long wtoh(const wchar_t* s);

// In place, byte by byte, by the system's tolower and toupper in the current locale; give `s`, which may be null.
char* strlwr(char* s);
char* strupr(char* s);

// Replaces every `from` in place and gives `s`, which may be null.
template <class T>
T* LStringReplaceChar(T* s, T from, T to) {
    for (T* p = s; p && *p; p++)
        if (*p == from) *p = to;
    return s;
}

// 0 if the strings agree up to the end of the shorter one (a prefix compares equal), else -1. No order.
int wstrcmp(const wchar_t* a, const wchar_t* b);

// The text behind the first `start` up to the next `end`, or to the end of the text where that doesn't follow; at most
// size - 1 characters of it. False, and an empty field, when `start` isn't there.
template <class T>
bool LStringFindTextFieldTemplate(const T* text, const T* start, const T* end, T* field, unsigned long size) {
    using View = std::basic_string_view<T>;
    const T none{};
    const View whole(text ? text : &none), startText(start ? start : &none), endText(end ? end : &none);
    const size_t found = whole.find(startText);
    if (found == View::npos) {
        LCopyBounded(field, &none, size);
        return false;
    }
    const View rest = whole.substr(found + startText.size());
    LCopyBounded(field, rest.data(), std::min<size_t>(size, std::min(rest.find(endText), rest.size()) + 1));
    return true;
}
bool LStringFindTextField(const char* text, const char* start, const char* end, char* field, unsigned long size);

// The item of a comma-separated line at `pos`, which moves behind it; at most size - 1 characters. Commas in double
// quotes belong to the item, the quotes themselves don't; blanks outside them are trimmed. False at the end of the line
// (NUL, CR or LF, where `pos` stays), and for an empty item: compare `pos` to tell the two.
bool GetCSVListItem(const char* list, unsigned long& pos, char* item, unsigned long size);

// Removes the first name=value item of a query string in place, with the "&" before it. The name is searched as text:
// "a=" is found in "ba=1", too.
void LRemoveHTTPItem(const char* name, char* query);

// `n` random letters a to z and a terminator; gives `n`. From the system's rand(), seeded by the clock: no secrets.
unsigned long LStringGenerateRandomPassword(char* dst, unsigned long n);
// Seeds rand() by the clock.
void randomize();

// Menu texts. A mnemonic's "&" is dropped, "&&" becomes one. At most 259 characters of the result are kept, so 260
// bytes are room enough for `dst`, which may be `src`.
void LStripAmpersand(char* dst, const char* src);
// Drops mnemonics in parentheses behind the text, as Japanese menus have them: "File(&F)" becomes "File".
void LStripJPStyleAmpersand(char* dst, const char* src);
// Cuts at the first tab, behind which the accelerator stands, and gives its place, or null.
char* LStripFromFirstTabToEnd(char* s);
// Both: no mnemonics and no accelerator. Gives `dst`.
char* LPrepareForMenuItem(char* dst, const char* src);
void LPrepareForDisplay(char* dst, const char* src);
