// Wildcard patterns: "*" stands for any run of characters, also none, "?" for exactly one, every other character for
// itself; a name matches as a whole. Pure, any thread, no allocation.
#pragma once

#include <string_view>

// One star is remembered, the last one: if the rest doesn't fit, that star takes one character more. Whatever an
// earlier star could take, the last one can take instead, so no other way need be tried: quadratic at worst.
template <class T>
bool LMatchesWildcard(std::basic_string_view<T> pattern, std::basic_string_view<T> name) {
    constexpr size_t kNone = std::basic_string_view<T>::npos;
    size_t p = 0, n = 0, star = kNone, starEnd = 0;
    while (n < name.size()) {
        // The star first: it is a wildcard also where the name has one.
        if (p < pattern.size() && pattern[p] == T('*')) {
            star = p++;
            starEnd = n;
        } else if (p < pattern.size() && (pattern[p] == T('?') || pattern[p] == name[n])) {
            p++;
            n++;
        } else if (star != kNone) {
            p = star + 1;
            n = ++starEnd;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == T('*')) p++;
    return p == pattern.size();
}
