#include "text/LCharsetsUnicode.h"

#include "text/LCharsetsCodec.h"
#include "text/LCopyBounded.h"

namespace {

// At most size - 1 characters, each made an Out.
template <class Out, class In>
void CopyWidth(Out* dst, const In* src, unsigned long size) {
    if (!size) return;
    unsigned long n = 0;
    for (; src && n < size - 1 && src[n]; n++) dst[n] = static_cast<Out>(src[n]);
    dst[n] = 0;
}

unsigned long EncodeGrown(LStringLongTemplate<char>& dst, const unsigned short* src, unsigned long units) {
    const unsigned long size = 6 * units + 1;
    dst.GrowToSize(size);
    dst.SetLength(LEncodeUTF8(dst.Buffer(), src, size).count);
    return dst.Length();
}

constexpr unsigned short SwapBytes(unsigned short unit) {
    return static_cast<unsigned short>(unit << 8 | unit >> 8);
}

}  // namespace

unsigned long lstrlen(const unsigned short* s) {
    return s ? std::char_traits<unsigned short>::length(s) : 0;
}

unsigned short* LCopyUnicodeFromUTF32(unsigned short* dst, const wchar_t* src, unsigned long size) {
    CopyWidth(dst, src, size);
    return dst;
}

void LCopyUTF32FromUnicode(wchar_t* dst, const unsigned short* src, unsigned long size) {
    CopyWidth(dst, src, size);
}

void LCopyUnicodeFromUTF8(unsigned short* dst, const char* src, unsigned long size) {
    LDecodeUTF8(dst, src, size);
}

void LCopyUnicodeFromUTF8(unsigned short* dst, const char* src) {
    LCopyUnicodeFromUTF8(dst, src, LTextBufferSize);
}

void LCopyUTF8FromUnicode(char* dst, const unsigned short* src, unsigned long size) {
    LEncodeUTF8(dst, src, size);
}

void LCopyUTF8FromUnicode(char* dst, const unsigned short* src) {
    LCopyUTF8FromUnicode(dst, src, LTextBufferSize);
}

unsigned long LCopyUnicodeFromUTF8(LStringLongTemplate<unsigned short>& dst, const LStringLongTemplate<char>& src) {
    const unsigned long size = src.Length() + 1ul;
    dst.GrowToSize(size);
    dst.SetLength(LDecodeUTF8(dst.Buffer(), src.Get(), size).count);
    return dst.Length();
}

unsigned long LCopyUTF8FromUnicode(LStringLongTemplate<char>& dst, const LStringLongTemplate<unsigned short>& src) {
    return EncodeGrown(dst, src.Get(), src.Length());
}

unsigned long LCopyFromUnicode(LStringLongTemplate<char>& dst, const unsigned short* src) {
    dst.Clear();
    return EncodeGrown(dst, src, lstrlen(src));
}

unsigned long LCopyToBigEndianUnicode(unsigned short* dst, const unsigned short* src, unsigned long count,
                                      bool terminate) {
    unsigned long copied = 0;
    for (; src && copied < count && src[copied]; copied++) dst[copied] = SwapBytes(src[copied]);
    if (terminate) {
        dst[copied] = 0;
        return copied;
    }
    std::fill(dst + copied, dst + count, SwapBytes(' '));
    return count;
}
