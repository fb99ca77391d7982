#include "Utf16.h"

#include "Utf8.h"

#include <cstdint>

namespace platform {

namespace {

constexpr bool IsHighSurrogate(uint32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool IsLowSurrogate(uint32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void AppendCodePoint(std::u16string& out, uint32_t c) {
    if (c < 0x10000) {
        out += static_cast<char16_t>(c);
        return;
    }
    out += static_cast<char16_t>(0xD7C0 + (c >> 10));
    out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
}

void AppendUtf8(std::string& out, uint32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
        return;
    }
    const unsigned following = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    const uint32_t mark = following == 1 ? 0xC0 : following == 2 ? 0xE0 : 0xF0;
    out += static_cast<char>(mark | (c >> (6 * following)));
    for (unsigned left = following; left > 0; --left) out += static_cast<char>(0x80 | ((c >> (6 * (left - 1))) & 0x3F));
}

}  // namespace

std::optional<std::u16string> Utf16FromUtf8(std::string_view text) {
    if (!IsUtf8(text)) return std::nullopt;
    std::u16string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i++]);
        const unsigned following = lead < 0xC0 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
        uint32_t c = following == 0 ? lead : lead & (0x3Fu >> following);
        for (unsigned n = 0; n < following; ++n) c = (c << 6) | (static_cast<unsigned char>(text[i++]) & 0x3Fu);
        AppendCodePoint(out, c);
    }
    return out;
}

std::string Utf8FromUtf16(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        uint32_t c = text[i];
        if (IsHighSurrogate(c) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
            c = 0x10000 + ((c & 0x3FF) << 10) + (text[++i] & 0x3FFu);
        }
        AppendUtf8(out, c);
    }
    return out;
}

}  // namespace platform
