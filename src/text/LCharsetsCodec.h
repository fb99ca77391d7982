// The loops behind the UTF-8 conversions of LCharsetsUTF8.h and LCharsetsUnicode.h, for UTF-32 and UTF-16 on the other
// side (UTF-16 as UCS-2: units are never paired). Not for other callers. Pure functions, any thread.
//
// What is legal UTF-8 follows the Unicode Consortium's converter (Unicode, table 3-7): no overlong forms, no
// surrogates, nothing above U+10FFFF. ASCII is handled eight characters at a time inside the text's known length, so
// that nothing is ever read behind a terminator.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <type_traits>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

inline constexpr unsigned long LCharsetsDone = 0;       // everything converted
inline constexpr unsigned long LCharsetsSizeLimit = 1;  // stopped at the size limit; the output has what comes before
inline constexpr unsigned long LCharsetsIllegal =
    2;  // illegal input: the decoder stopped, the encoder put U+FFFD and went on

struct LConverted {
    unsigned long result;  // one of the above
    unsigned long count;   // values written, terminator not counted
};

// How long a UTF-8 sequence claims to be; a stray continuation byte counts as a character.
constexpr unsigned LUTF8SequenceLength(unsigned char lead) {
    if (lead < 0xC0) return 1;
    if (lead < 0xE0) return 2;
    if (lead < 0xF0) return 3;
    if (lead < 0xF8) return 4;
    return lead < 0xFC ? 5 : 6;
}

namespace charsets {

static_assert(std::endian::native == std::endian::little, "the first of eight bytes is the low one");
inline constexpr uint64_t cHighBits = 0x8080808080808080u;
inline constexpr uint32_t cIllegal = 0xFFFFFFFF;
inline constexpr uint32_t cReplacement = 0xFFFD;

inline bool IsTrail(unsigned char c) {
    return (c & 0xC0) == 0x80;
}

// The value of the sequence at p, or cIllegal. Stops reading at the first byte that can't belong to it, so at a
// terminator.
inline uint32_t ReadSequence(const unsigned char* p) {
    const uint32_t lead = p[0];
    if (lead < 0xC2 || lead > 0xF4 || !IsTrail(p[1])) return cIllegal;
    if (lead < 0xE0) return (lead & 0x1F) << 6 | (p[1] & 0x3F);
    if (!IsTrail(p[2])) return cIllegal;
    const uint32_t low = (p[1] & 0x3Fu) << 6 | (p[2] & 0x3F);
    if (lead < 0xF0) {
        const uint32_t value = (lead & 0x0F) << 12 | low;
        return value >= 0x800 && value - 0xD800 >= 0x800 ? value : cIllegal;
    }
    if (!IsTrail(p[3])) return cIllegal;
    const uint32_t value = (lead & 0x07) << 18 | low << 6 | (p[3] & 0x3F);
    return value >= 0x10000 && value <= 0x10FFFF ? value : cIllegal;
}

// Widens the eight bytes of `word`, which are ASCII as far as the caller will count them. (At -O2 the compiler doesn't
// make vector instructions of loops that change a width.)
template <class Out>
inline void Widen(Out* out, uint64_t word) {
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    const __m128i wide = _mm_unpacklo_epi8(_mm_cvtsi64_si128(static_cast<long long>(word)), zero);
    if constexpr (sizeof(Out) == 2) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), wide);
    } else {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi16(wide, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4), _mm_unpackhi_epi16(wide, zero));
    }
#else
    for (int i = 0; i < 8; i++) out[i] = static_cast<Out>(word >> 8 * i & 0xFF);
#endif
}

// Converts the ASCII run at p, which has at least one character. May scribble on up to seven values behind its output:
// there is room, since the output never has more values than the input had bytes.
template <class Out>
inline void WidenRun(Out*& out, const unsigned char*& p, const unsigned char* end) {
    while (end - p >= 8) {
        uint64_t word;
        memcpy(&word, p, 8);
        Widen(out, word);
        const uint64_t high = word & cHighBits;
        const int run = high ? std::countr_zero(high) / 8 : 8;
        p += run;
        out += run;
        if (high) return;
    }
    while (p < end && *p < 0x80) *out++ = static_cast<Out>(*p++);
}

// The bytes of a value below 0x110000; there is room for four. One and two bytes take the same way: text in Latin
// alphabets mixes them too much for a branch to be foreseen.
inline char* WriteSequence(char* out, uint32_t value) {
    const auto trail = [value](int shift) { return static_cast<char>(0x80 | (value >> shift & 0x3F)); };
    if (value < 0x800) {
        const uint32_t isLong = (0x7F - value) >> 31, lead = 0xC0 | value >> 6;
        out[0] = static_cast<char>(value ^ ((value ^ lead) & (0 - isLong)));
        out[1] = trail(0);
        return out + 1 + isLong;
    }
    if (value < 0x10000) {
        out[0] = static_cast<char>(0xE0 | value >> 12);
        out[1] = trail(6);
        out[2] = trail(0);
        return out + 3;
    }
    out[0] = static_cast<char>(0xF0 | value >> 18);
    out[1] = trail(12);
    out[2] = trail(6);
    out[3] = trail(0);
    return out + 4;
}

// Packs the eight values at p into bytes, if all of them are ASCII.
template <class In>
inline bool PackEight(char* out, const In* p) {
#if defined(__SSE2__)
    const auto load = [p](int i) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i)); };
    __m128i units = load(0);
    if constexpr (sizeof(In) == 4) {
        const __m128i high = load(4), other = _mm_andnot_si128(_mm_set1_epi32(0x7F), _mm_or_si128(units, high));
        if (_mm_movemask_epi8(_mm_cmpeq_epi8(other, _mm_setzero_si128())) != 0xFFFF) return false;
        units = _mm_packs_epi32(units, high);
    } else {
        const __m128i other = _mm_andnot_si128(_mm_set1_epi16(0x7F), units);
        if (_mm_movemask_epi8(_mm_cmpeq_epi8(other, _mm_setzero_si128())) != 0xFFFF) return false;
    }
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(units, units));
#else
    for (int i = 0; i < 8; i++) {
        if (static_cast<std::make_unsigned_t<In>>(p[i]) >= 0x80) return false;
        out[i] = static_cast<char>(p[i]);
    }
#endif
    return true;
}

template <class In>
unsigned long LengthWithin(const In* text, unsigned long limit) {
    if constexpr (std::is_same_v<In, wchar_t>) {
        return wcsnlen(text, limit);
    } else {
        unsigned long n = 0;
        while (n < limit && text[n]) n++;
        return n;
    }
}

}  // namespace charsets

// Decodes terminated UTF-8 (null counts as "") into `destination`, which has room for `size` values. The limit counts
// source bytes: a character is converted only if all its bytes are among the first size - 1, so its value has room as
// well. Values are cut to the width of Out. Always terminates; with size 0 nothing is written and the limit is reached
// at once.
template <class Out>
LConverted LDecodeUTF8(Out* destination, const char* source, unsigned long size) {
    if (!size) return {LCharsetsSizeLimit, 0};
    const char* const text = source ? source : "";
    const auto* p = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* const end = p + strnlen(text, size - 1);
    const unsigned char* const begin = p;
    Out* out = destination;
    const auto finish = [&](unsigned long result) {
        *out = Out();
        return LConverted{result, static_cast<unsigned long>(out - destination)};
    };
    while (p < end) {
        if (*p < 0x80) {
            charsets::WidenRun(out, p, end);
            continue;
        }
        const unsigned length = LUTF8SequenceLength(*p);
        if (length > size - 1 - static_cast<unsigned long>(p - begin)) return finish(LCharsetsSizeLimit);
        const uint32_t value = charsets::ReadSequence(p);
        if (value == charsets::cIllegal) return finish(LCharsetsIllegal);
        *out++ = static_cast<Out>(value);
        p += length;
    }
    return finish(*end ? LCharsetsSizeLimit : LCharsetsDone);
}

// Encodes terminated text (null counts as empty) into `destination`, which has room for `size` bytes: whole characters
// only, terminated. Surrogates are encoded like any other value; what is above 0x10FFFF (or negative) becomes U+FFFD.
// With size 0 nothing is written.
template <class In>
LConverted LEncodeUTF8(char* destination, const In* source, unsigned long size) {
    if (!size) return {LCharsetsDone, 0};
    const In* p = source;
    const In* const end = p + (p ? charsets::LengthWithin(p, size - 1) : 0);
    const In* nextTry = p;  // for eight at once: not before the eight that failed are through
    char* out = destination;
    char* const outEnd = out + std::min(size - 1, 4 * static_cast<unsigned long>(end - p));
    unsigned long result = LCharsetsDone;
    const auto next = [&] {
        const uint32_t value = static_cast<uint32_t>(*p++);
        if (value < 0x110000) return value;
        result = LCharsetsIllegal;
        return charsets::cReplacement;
    };
    while (p < end && outEnd - out >= 8) {
        if (p >= nextTry && end - p >= 8) {
            if (charsets::PackEight(out, p)) {
                p += 8;
                out += 8;
                continue;
            }
            nextTry = p + 8;
        }
        out = charsets::WriteSequence(out, next());
    }
    while (p < end) {  // near the end of the room
        char last[4];
        const unsigned long before = result;
        const auto count = charsets::WriteSequence(last, next()) - last;
        if (count > outEnd - out) {
            result = before;  // what isn't written wasn't replaced either
            break;
        }
        out = std::copy_n(last, count, out);
    }
    *out = 0;
    return {result, static_cast<unsigned long>(out - destination)};
}
