// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
#pragma once

#include <string_view>

namespace platform {

bool IsUtf8(std::string_view text);

}  // namespace platform
