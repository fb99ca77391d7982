#include "Utf8.h"

#include <cstdint>
#include <cstring>

namespace platform {

namespace {

// The length of the sequence that begins at `p`, 0 when there is no valid one. The second byte's range is narrower
// after four lead bytes: that is what rules out overlong forms, surrogates and values above U+10FFFF (Unicode, table
// 3-7).
size_t SequenceLength(const unsigned char* p, size_t left) {
    const unsigned lead = p[0];
    if (lead < 0x80) return 1;
    const size_t length = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
    if (length == 0 || length > left) return 0;
    const unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (p[1] < low || p[1] > high) return 0;
    for (size_t i = 2; i < length; i++)
        if ((p[i] & 0xC0) != 0x80) return 0;
    return length;
}

}  // namespace

bool IsUtf8(std::string_view text) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    size_t left = text.size();
    while (left > 0) {
        uint64_t eight;
        if (left >= sizeof eight && (std::memcpy(&eight, p, sizeof eight), (eight & 0x8080808080808080u) == 0)) {
            p += sizeof eight;
            left -= sizeof eight;
            continue;
        }
        const size_t length = SequenceLength(p, left);
        if (length == 0) return false;
        p += length;
        left -= length;
    }
    return true;
}

}  // namespace platform
