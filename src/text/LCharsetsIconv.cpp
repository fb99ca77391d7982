#include "text/LCharsetsIconv.h"

#include "text/LCopyBounded.h"

#include <cstring>
#include <iconv.h>
#include <string>
#include <string_view>

namespace {

constexpr const char* cUTF8 = "UTF-8";
constexpr const char* cISO88591 = "ISO-8859-1";
constexpr const char* cISO88595 = "ISO-8859-5";

bool IsInside(const char* p, const char* begin, unsigned long size) {
    return p >= begin && p < begin + size;
}

unsigned long Length(const char* text) {
    return text ? strlen(text) : 0;
}

// Converts the text with its terminator into `room` bytes (at least one) and terminates.
void Convert(char* dst, const char* src, unsigned long room, const char* toCode, const char* fromCode) {
    dst[0] = 0;
    const iconv_t converter = iconv_open(toCode, fromCode);
    if (converter == reinterpret_cast<iconv_t>(-1)) return;
    size_t left = strlen(src) + 1, outputLeft = room;
    char* in = const_cast<char*>(src);  // iconv's type for what it only reads
    char* out = dst;
    iconv(converter, &in, &left, &out, &outputLeft);
    iconv_close(converter);
    if (!left) return;  // the terminator was converted too
    if (!outputLeft) {
        out--;
        if (std::string_view(toCode) == cUTF8) {
            while (out > dst && (*out & 0xC0) == 0x80) out--;
        }
    }
    *out = 0;
}

void CopyIconvFixedLength(char* dst, const char* src, unsigned long size, const char* toCode, const char* fromCode) {
    if (!size) return;
    if (src && (IsInside(src, dst, size) || IsInside(dst, src, strlen(src) + 1))) {
        Convert(dst, std::string(src).c_str(), size, toCode, fromCode);
    } else {
        Convert(dst, src ? src : "", size, toCode, fromCode);
    }
}

// Grows the string to `growth` times the text + 1, runs a three-argument form on it and takes the length over.
template <class F>
auto Grown(LStringLongTemplate<char>& dst, const char* src, unsigned long growth, F copy) {
    LStringLongTemplate<char> aside;  // growing would free a text that lies in the string itself
    if (src && dst.Buffer() && IsInside(src, dst.Buffer(), dst.Capacity())) {
        aside = src;
        src = aside.Get();
    }
    const unsigned long size = growth * Length(src) + 1;
    dst.GrowToSize(size);
    const struct SetLength {
        LStringLongTemplate<char>& s;
        ~SetLength() { s.SetLength(strlen(s.Buffer())); }
    } setLength{dst};
    return copy(dst.Buffer(), src, size);
}

constexpr unsigned long cFromGrowth = 6, cToGrowth = 1;
using Converter = void (*)(char*, const char*, unsigned long);

void FromPage(LStringLongTemplate<char>& dst, const char* src, Converter convert) {
    Grown(dst, src, cFromGrowth, convert);
}
void ToPage(LStringLongTemplate<char>& dst, const char* src, Converter convert) {
    Grown(dst, src, cToGrowth, convert);
}

}  // namespace

void LCopyFromISO88591(char* dst, const char* src) {
    LCopyFromISO88591(dst, src, Length(src) + 1);
}
void LCopyFromISO88591(char* dst, const char* src, unsigned long size) {
    CopyIconvFixedLength(dst, src, size, cUTF8, cISO88591);
}
void LCopyFromISO88591(LStringLongTemplate<char>& dst, const char* src) {
    FromPage(dst, src, LCopyFromISO88591);
}

void LCopyToISO88591(char* dst, const char* src) {
    LCopyToISO88591(dst, src, Length(src) + 1);
}
void LCopyToISO88591(char* dst, const char* src, unsigned long size) {
    CopyIconvFixedLength(dst, src, size, cISO88591, cUTF8);
}
void LCopyToISO88591(LStringLongTemplate<char>& dst, const char* src) {
    ToPage(dst, src, LCopyToISO88591);
}

void LCopyFromWIN1252(char* dst, const char* src, unsigned long size) {
    LCopyFromISO88591(dst, src, size);
}
void LCopyFromWIN1252(LStringLongTemplate<char>& dst, const char* src) {
    FromPage(dst, src, LCopyFromWIN1252);
}
void LCopyToWIN1252(char* dst, const char* src, unsigned long size) {
    LCopyToISO88591(dst, src, size);
}
void LCopyToWIN1252(LStringLongTemplate<char>& dst, const char* src) {
    ToPage(dst, src, LCopyToWIN1252);
}

void LCopyFromISO88595(char* dst, const char* src, unsigned long size) {
    CopyIconvFixedLength(dst, src, size, cUTF8, cISO88595);
}
void LCopyFromISO88595(LStringLongTemplate<char>& dst, const char* src) {
    FromPage(dst, src, LCopyFromISO88595);
}
void LCopyToISO88595(char* dst, const char* src, unsigned long size) {
    CopyIconvFixedLength(dst, src, size, cISO88595, cUTF8);
}
void LCopyToISO88595(LStringLongTemplate<char>& dst, const char* src) {
    ToPage(dst, src, LCopyToISO88595);
}

unsigned long LCopyFromSHIFTJIS932(char* dst, const char* src, unsigned long size) {
    return LCopyBounded(dst, src, size);
}
unsigned long LCopyFromSHIFTJIS932(LStringLongTemplate<char>& dst, const char* src) {
    return Grown(dst, src, cFromGrowth, LCopyBounded<char>);
}
unsigned long LCopyToSHIFTJIS932(char* dst, const char* src, unsigned long size) {
    return LCopyBounded(dst, src, size);
}
unsigned long LCopyToSHIFTJIS932(LStringLongTemplate<char>& dst, const char* src) {
    return Grown(dst, src, cToGrowth, LCopyBounded<char>);
}
unsigned long LCopyFromEUCKR(char* dst, const char* src, unsigned long size) {
    return LCopyBounded(dst, src, size);
}
unsigned long LCopyFromEUCKR(LStringLongTemplate<char>& dst, const char* src) {
    return Grown(dst, src, cFromGrowth, LCopyBounded<char>);
}
unsigned long LCopyToEUCKR(char* dst, const char* src, unsigned long size) {
    return LCopyBounded(dst, src, size);
}
unsigned long LCopyToEUCKR(LStringLongTemplate<char>& dst, const char* src) {
    return Grown(dst, src, cToGrowth, LCopyBounded<char>);
}
