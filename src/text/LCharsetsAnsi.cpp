#include "text/LCharsetsAnsi.h"

#include "text/LAllocate.h"
#include "text/LCharsetsUnicode.h"

#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>

namespace {

struct Release {
    void operator()(CFStringRef string) const { CFRelease(string); }
};
using StringPtr = std::unique_ptr<const CFString, Release>;

StringPtr FromAnsi(const char* text, unsigned long bytes) {
    return StringPtr(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text),
                                             static_cast<CFIndex>(bytes), kCFStringEncodingWindowsLatin1, false));
}

// The units with a terminator, if that fits into `size`; else "".
unsigned long Units(const StringPtr& string, unsigned short* dst, unsigned long size) {
    const CFIndex length = string ? CFStringGetLength(string.get()) : 0;
    const bool isWhole = static_cast<unsigned long>(length) < size;
    if (string && isWhole) CFStringGetCharacters(string.get(), CFRangeMake(0, length), dst);
    const unsigned long count = isWhole ? static_cast<unsigned long>(length) : 0;
    dst[count] = 0;
    return count;
}

void ToAnsi(char* dst, const unsigned short* units, unsigned long count, unsigned long size) {
    const StringPtr string(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(units),
                                                   static_cast<CFIndex>(2 * count), kCFStringEncodingUnicode, false));
    dst[0] = 0;
    if (string && !CFStringGetCString(string.get(), dst, static_cast<CFIndex>(size), kCFStringEncodingISOLatin1))
        dst[0] = 0;
}

unsigned long ToAnsiGrown(LStringLongTemplate<char>& dst, const unsigned short* units, unsigned long count) {
    dst.GrowToSize(count + 1);
    ToAnsi(dst.Buffer(), units, count, count + 1);
    dst.SetLength(strlen(dst.Buffer()));
    return dst.Length();
}

// A place for up to `count` units: on the stack where they are few.
class Scratch {
public:
    explicit Scratch(unsigned long count)
        : large(count > std::size(fixed) ? LNewArray<unsigned short>(count) : nullptr) {}
    unsigned short* Get() { return large ? large.get() : fixed; }

private:
    unsigned short fixed[4096];
    std::unique_ptr<unsigned short[]> large;
};

// A text never needs more units (nor Ansi bytes) than it has bytes, however big its buffer is said to be.
unsigned long UnitsNeeded(const char* src, unsigned long size) {
    return std::min<unsigned long>(size, strlen(src) + 1);
}

}  // namespace

unsigned long LCopyUnicodeFromAnsi(LStringLongTemplate<unsigned short>& dst, const LStringLongTemplate<char>& src) {
    const unsigned long size = src.Length() + 1ul;
    dst.GrowToSize(size);
    dst.SetLength(Units(FromAnsi(src.Get(), src.Length()), dst.Buffer(), size));
    return dst.Length();
}

unsigned long LCopyAnsiFromUnicode(LStringLongTemplate<char>& dst, const unsigned short* src) {
    return ToAnsiGrown(dst, src, lstrlen(src));
}

unsigned long LCopyAnsiFromUnicode(LStringLongTemplate<char>& dst, const LStringLongTemplate<unsigned short>& src) {
    return ToAnsiGrown(dst, src.Get(), src.Length());
}

void LCopyAnsiFromUTF8(char* dst, const char* src, unsigned long size) {
    if (!size) return;
    const char* const text = src ? src : "";
    const unsigned long room = UnitsNeeded(text, size);
    Scratch scratch(room);
    LCopyUnicodeFromUTF8(scratch.Get(), text, room);
    ToAnsi(dst, scratch.Get(), lstrlen(scratch.Get()), room);
}

void LCopyUTF8FromAnsi(char* dst, const char* src, unsigned long size) {
    if (!size) return;
    const char* const text = src ? src : "";
    const unsigned long room = UnitsNeeded(text, size);
    Scratch scratch(room);
    Units(FromAnsi(text, strlen(text)), scratch.Get(), room);
    LCopyUTF8FromUnicode(dst, scratch.Get(), size);
}
