// UTF-16 from and to UTF-8. Pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

// Strict: nothing for overlong forms, encoded surrogates, values above U+10FFFF and cut sequences. Code points above
// U+FFFF become surrogate pairs.
std::optional<std::u16string> Utf16FromUtf8(std::string_view text);

// Pairs become four bytes; a lone surrogate is written as the three bytes of its value, so that text which came in
// through a lenient decoder goes out again as it was.
std::string Utf8FromUtf16(std::u16string_view text);

}  // namespace platform
