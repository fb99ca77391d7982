// Reading a text piece by piece: up to delimiters, and the arguments of a command line. The texts are the caller's and
// must outlive their reader. One thread.
#pragma once

#include "text/LCopyBounded.h"
#include "text/LStringLong.h"

#include <algorithm>
#include <string_view>

// Copies the characters before the first one that is in `stops` (or before the end), at most 259 of them, into the 260
// of `out`. Gives how many there are, stored or not: the index of the stop character or of the terminator.
template <class T>
unsigned long LParseGetToCharacters(const T* text, const T* stops, T* out) {
    const T none{};
    const std::basic_string_view<T> whole(text ? text : &none), stopSet(stops ? stops : &none);
    const size_t scanned = std::min(whole.find_first_of(stopSet), whole.size());
    const size_t stored = std::min<size_t>(scanned, LTextBufferSize - 1);
    std::copy_n(whole.data(), stored, out);
    out[stored] = T();
    return scanned;
}

template <class T>
class LStringParserTemplate {
public:
    explicit LStringParserTemplate(const T* text) : position(text) {}

    // As LParseGetToCharacters from the current position, which moves behind the stop character, or to the end.
    void GetToCharacterAndSkip(const T* stops, T* out) {
        const unsigned long scanned = LParseGetToCharacters(position, stops, out);
        if (!position) return;
        position += scanned;
        if (*position) position++;
    }

private:
    const T* position;
};

// Splits a command line at blanks. Double quotes keep blanks together and end an argument, a back slash before a space
// keeps that space.
class LCommandLineArgumentStringExpander {
public:
    explicit LCommandLineArgumentStringExpander(const char* commandLine) : position(commandLine ? commandLine : "") {}

    // Reads the next argument. False when there is none; an empty one in quotes ends the list, too.
    bool NextArgument();
    const LStringLongTemplate<char>& Argument() const { return argument; }

    // How many arguments follow the first one (the program's name) in a command line of its own.
    unsigned long GetArgumentCount(const char* commandLine) const;

private:
    const char* position;
    LStringLongTemplate<char> argument;
};
