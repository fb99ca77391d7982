#include "CFObject.h"
#include "Utf16.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <optional>
#include <string_view>

struct CFString {
    platform::CFHeader header;
    std::u16string text;
};

namespace {

// Windows-1252, bytes 0x80 to 0x9F; all others are their own code points. From the WHATWG encoding index, which gives
// the five bytes that Unicode's mapping file leaves open (81 8D 8F 90 9D) the control characters of the same number.
constexpr char16_t kWindowsLatin1[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

char16_t FromWindowsLatin1(unsigned char byte) {
    return byte >= 0x80 && byte < 0xA0 ? kWindowsLatin1[byte - 0x80] : byte;
}

std::optional<char> ToWindowsLatin1(char16_t unit) {
    if (unit < 0x80 || (unit >= 0xA0 && unit <= 0xFF)) return static_cast<char>(unit);
    const auto* const found = std::find(std::begin(kWindowsLatin1), std::end(kWindowsLatin1), unit);
    if (found == std::end(kWindowsLatin1)) return std::nullopt;
    return static_cast<char>(0x80 + (found - kWindowsLatin1));
}

std::optional<char> ToIsoLatin1(char16_t unit) {
    return unit <= 0xFF ? std::optional(static_cast<char>(unit)) : std::nullopt;
}

template <class Convert>
std::u16string DecodeBytes(std::string_view bytes, Convert convert) {
    std::u16string text(bytes.size(), u'\0');
    std::transform(bytes.begin(), bytes.end(), text.begin(),
                   [convert](char byte) { return convert(static_cast<unsigned char>(byte)); });
    return text;
}

template <class Convert>
std::optional<std::string> EncodeBytes(std::u16string_view text, Convert convert) {
    std::string bytes;
    bytes.reserve(text.size());
    for (const char16_t unit : text) {
        const std::optional<char> byte = convert(unit);
        if (!byte) return std::nullopt;
        bytes += *byte;
    }
    return bytes;
}

std::optional<std::u16string> DecodeUtf16(std::string_view bytes, bool obeysMark) {
    if (bytes.size() % 2) return std::nullopt;
    bool bigEndian = std::endian::native == std::endian::big;
    if (obeysMark && (bytes.starts_with("\xFE\xFF") || bytes.starts_with("\xFF\xFE"))) {
        bigEndian = bytes[0] == '\xFE';
        bytes.remove_prefix(2);
    }
    std::u16string text(bytes.size() / 2, u'\0');
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned first = static_cast<unsigned char>(bytes[2 * i]);
        const unsigned second = static_cast<unsigned char>(bytes[2 * i + 1]);
        text[i] = static_cast<char16_t>(bigEndian ? first << 8 | second : second << 8 | first);
    }
    return text;
}

std::optional<std::u16string> Decode(std::string_view bytes, CFStringEncoding encoding, bool isExternal) {
    switch (encoding) {
    case kCFStringEncodingUTF8:
        if (isExternal && bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
        return platform::Utf16FromUtf8(bytes);
    case kCFStringEncodingUnicode:
        return DecodeUtf16(bytes, isExternal);
    case kCFStringEncodingWindowsLatin1:
        return DecodeBytes(bytes, FromWindowsLatin1);
    case kCFStringEncodingISOLatin1:
        return DecodeBytes(bytes, [](unsigned char byte) { return static_cast<char16_t>(byte); });
    default:
        return std::nullopt;
    }
}

// Nothing for UTF-16 too: its texts are no C strings.
std::optional<std::string> Encode(std::u16string_view text, CFStringEncoding encoding) {
    switch (encoding) {
    case kCFStringEncodingUTF8:
        return platform::Utf8FromUtf16(text);
    case kCFStringEncodingWindowsLatin1:
        return EncodeBytes(text, ToWindowsLatin1);
    case kCFStringEncodingISOLatin1:
        return EncodeBytes(text, ToIsoLatin1);
    default:
        return std::nullopt;
    }
}

}  // namespace

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex count, CFStringEncoding encoding,
                                    bool isExternalRepresentation) {
    if (count < 0 || (!bytes && count > 0)) return nullptr;
    const std::string_view view(reinterpret_cast<const char*>(bytes), static_cast<size_t>(count));
    auto text = Decode(view, encoding, isExternalRepresentation);
    return text ? platform::MakeCF<CFString>(std::move(*text)) : nullptr;
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding) {
    if (!text || encoding == kCFStringEncodingUnicode) return nullptr;
    return CFStringCreateWithBytes(allocator, reinterpret_cast<const UInt8*>(text),
                                   static_cast<CFIndex>(std::strlen(text)), encoding, false);
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* units, CFIndex count) {
    if (count < 0 || (!units && count > 0)) return nullptr;
    std::u16string text(static_cast<size_t>(count), u'\0');
    std::copy_n(units, count, text.begin());
    return platform::MakeCF<CFString>(std::move(text));
}

CFIndex CFStringGetLength(CFStringRef string) {
    return string ? static_cast<CFIndex>(string->text.size()) : 0;
}

bool CFStringGetCString(CFStringRef string, char* buffer, CFIndex size, CFStringEncoding encoding) {
    if (!buffer || size <= 0) return false;
    buffer[0] = '\0';
    const auto bytes = string ? Encode(string->text, encoding) : std::nullopt;
    if (!bytes || bytes->size() >= static_cast<size_t>(size)) return false;
    std::memcpy(buffer, bytes->c_str(), bytes->size() + 1);
    return true;
}

bool CFStringGetPascalString(CFStringRef string, unsigned char* buffer, CFIndex size, CFStringEncoding encoding) {
    if (!buffer || size <= 0) return false;
    buffer[0] = 0;
    const auto bytes = string ? Encode(string->text, encoding) : std::nullopt;
    if (!bytes || bytes->size() > 255 || bytes->size() >= static_cast<size_t>(size)) return false;
    buffer[0] = static_cast<unsigned char>(bytes->size());
    std::memcpy(buffer + 1, bytes->data(), bytes->size());
    return true;
}

void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer) {
    std::copy_n(string->text.begin() + range.location, range.length, buffer);
}

CFStringEncoding CFStringGetSystemEncoding() {
    return kCFStringEncodingUTF8;
}

namespace platform {

CFStringRef CFStringFromUtf8(std::string_view text) {
    return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                   static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false);
}

std::string Utf8FromCFString(CFStringRef string) {
    return string ? Utf8FromUtf16(string->text) : std::string();
}

}  // namespace platform
