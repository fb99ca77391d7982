#include "text/LUnicodeString.h"

#include "text/LCFString.h"
#include "text/LCharsetsUnicode.h"

namespace {

template <class T>
void Copy(const unsigned short* text, LStringLongTemplate<T>& out) {
    out.Clear();
    if (!text) return;
    const auto bytes = static_cast<CFIndex>(lstrlen(text) * sizeof *text);
    const LCFString string(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text), bytes,
                                                   kCFStringEncodingUnicode, false));
    string.GetString(out);
}

}  // namespace

void LUnicodeString::GetString(LStringLongTemplate<char>& out) const {
    Copy(pText, out);
}

void LUnicodeString::GetString(LStringLongTemplate<wchar_t>& out) const {
    Copy(pText, out);
}
