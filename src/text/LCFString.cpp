#include "text/LCFString.h"

#include "text/LCharsetsUTF8.h"
#include "text/LCharsetsUnicode.h"
#include "text/LCopyBounded.h"

#include <cstring>
#include <cwchar>
#include <vector>

namespace {

// Empties a buffer; false when it has no room even for that.
template <class T>
bool Empty(T* out, unsigned long size) {
    if (!size) return false;
    out[0] = T();
    return true;
}

}  // namespace

void LCFString::SetString(const char* s) {
    const char* text = s ? s : "";
    const unsigned long length = std::strlen(text);
    Adopt(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text),
                                  static_cast<CFIndex>(length), kCFStringEncodingUTF8, false));
    if (!Get()) Adopt(CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
    if (Get()) return;
    std::vector<unsigned short> units(length + 1);
    LCopyUnicodeFromUTF8(units.data(), text, length + 1);
    Adopt(CFStringCreateWithCharacters(kCFAllocatorDefault, units.data(), static_cast<CFIndex>(lstrlen(units.data()))));
}

void LCFString::GetString(LStringLongTemplate<char>& out) const {
    out.Clear();
    if (!Get()) return;
    const unsigned long room = 6 * static_cast<unsigned long>(CFStringGetLength(Get())) + 1;  // more than UTF-8 needs
    out.GrowToSize(room);
    CFStringGetCString(Get(), out.Buffer(), static_cast<CFIndex>(room), kCFStringEncodingUTF8);
    out.SetLength(std::strlen(out.Buffer()));
}

void LCFString::GetString(char* out, unsigned long size) const {
    if (!Empty(out, size) || !Get()) return;
    LStringLongTemplate<char> text;
    GetString(text);
    utf8strlcpy(out, text.Get(), size);
}

void LCFString::GetString(LStringLongTemplate<wchar_t>& out) const {
    out.Clear();
    if (!Get()) return;
    const CFIndex count = CFStringGetLength(Get());
    const auto units = static_cast<unsigned long>(count);
    out.GrowToSize(units + 2);
    std::vector<unsigned short> scratch(units + 1);
    CFStringGetCharacters(Get(), CFRangeMake(0, count), scratch.data());
    LCopyUTF32FromUnicode(out.Buffer(), scratch.data(), units + 1);
    out.SetLength(std::wcslen(out.Buffer()));
}

void LCFString::GetString(wchar_t* out, unsigned long size) const {
    if (!Empty(out, size) || !Get()) return;
    LStringLongTemplate<wchar_t> text;
    GetString(text);
    LCopyBounded(out, text.Get(), size);
}
