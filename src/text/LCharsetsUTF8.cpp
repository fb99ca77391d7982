#include "text/LCharsetsUTF8.h"

#include "text/LCharsetsCodec.h"

namespace {

// The length of the character at s, which is not the terminator: what the lead byte says, or what there is.
unsigned CharacterLength(const char* s) {
    const unsigned claimed = LUTF8SequenceLength(static_cast<unsigned char>(*s));
    unsigned length = 1;
    while (length < claimed && s[length]) length++;
    return length;
}

}  // namespace

unsigned long utf8strlen(const char* s) {
    unsigned long characters = 0;
    for (; s && *s; s += CharacterLength(s)) characters++;
    return characters;
}

unsigned long utf8strlcpy(char* dst, const char* src, unsigned long size) {
    if (!size) return 0;
    unsigned long copied = 0;
    while (src && src[copied]) {
        const unsigned long length = CharacterLength(src + copied);
        if (length > size - 1 - copied) break;
        copied += length;
    }
    if (copied) memmove(dst, src, copied);
    dst[copied] = 0;
    return copied;
}

unsigned long LCharsetsUTF8CharIndexToByteIndex(const char* s, unsigned long charIndex) {
    unsigned long bytes = 0;
    for (; s && s[bytes] && charIndex; charIndex--) bytes += CharacterLength(s + bytes);
    return bytes;
}

unsigned long LCharsetsUTF8ByteIndexToCharIndex(const char* s, unsigned long byteIndex) {
    unsigned long characters = 0, bytes = 0;
    for (; s && s[bytes] && bytes < byteIndex; characters++) bytes += CharacterLength(s + bytes);
    return characters;
}

unsigned long LCopyUTF32FromUTF8Native(wchar_t* dst, const char* src, unsigned long size) {
    return LDecodeUTF8(dst, src, size).result;
}

unsigned long LCopyUTF32FromUTF8(wchar_t* dst, const char* src, unsigned long size) {
    return LCopyUTF32FromUTF8Native(dst, src, size);
}

unsigned long LCopyUTF8FromUTF32Native(char* dst, const wchar_t* src, unsigned long size) {
    return LEncodeUTF8(dst, src, size).result;
}

unsigned long LCopyUTF8FromUTF32(char* dst, const wchar_t* src, unsigned long size) {
    return LCopyUTF8FromUTF32Native(dst, src, size);
}
