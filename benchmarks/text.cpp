// Conversion between UTF-8 and UTF-32 beside iconv and a plain scalar loop; formatted printing beside snprintf (and
// fmt::sprintf where the build found it).
#include "Bench.h"

#include "text/LCharsetsUTF8.h"
#include "text/LPrintf.h"

#include <cstdlib>
#include <cstring>
#include <iconv.h>
#include <string>
#include <vector>

#if defined(HAVE_FMT) && __has_include(<fmt/printf.h>)
#include <fmt/printf.h>
#define WITH_FMT 1
#endif

namespace {

using bench::Keep;
using bench::Timed;

constexpr size_t cTextBytes = 1'000'000;
constexpr int cTimes = 30;

[[noreturn]] void Fail(const char* what) {
    fprintf(stderr, "text: %s\n", what);
    exit(1);
}

// The two plain loops, as anybody would write them.
char* ScalarEncode(char* o, uint32_t c) {
    if (c < 0x80) {
        *o++ = static_cast<char>(c);
        return o;
    }
    if (c < 0x800) {
        *o++ = static_cast<char>(0xC0 | c >> 6);
    } else {
        if (c < 0x10000) {
            *o++ = static_cast<char>(0xE0 | c >> 12);
        } else {
            *o++ = static_cast<char>(0xF0 | c >> 18);
            *o++ = static_cast<char>(0x80 | (c >> 12 & 63));
        }
        *o++ = static_cast<char>(0x80 | (c >> 6 & 63));
    }
    *o++ = static_cast<char>(0x80 | (c & 63));
    return o;
}

size_t ScalarDecode(const std::string& s, wchar_t* out) {
    const auto* p = reinterpret_cast<const unsigned char*>(s.data());
    const unsigned char* const end = p + s.size();
    wchar_t* o = out;
    while (p < end) {
        const unsigned c = *p++;
        if (c < 0x80) {
            *o++ = static_cast<wchar_t>(c);
            continue;
        }
        const int more = c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : 1;
        if (c < 0xC2 || c > 0xF4 || end - p < more) return 0;
        uint32_t v = c & (0x3Fu >> more);
        for (int i = 0; i < more; i++, p++) {
            if ((*p & 0xC0) != 0x80) return 0;
            v = v << 6 | (*p & 63u);
        }
        if ((more == 2 && (v < 0x800 || (v >= 0xD800 && v < 0xE000))) || (more == 3 && (v < 0x10000 || v > 0x10FFFF)))
            return 0;
        *o++ = static_cast<wchar_t>(v);
    }
    return static_cast<size_t>(o - out);
}

size_t Iconv(iconv_t converter, const void* in, size_t n, void* out, size_t room) {
    char* i = static_cast<char*>(const_cast<void*>(in));
    char* o = static_cast<char*>(out);
    size_t left = room;
    if (iconv(converter, &i, &n, &o, &left) == static_cast<size_t>(-1)) Fail("iconv");
    return room - left;
}

// Random text of one alphabet; all speeds are in MB of UTF-8 per second, whichever the direction.
void Charset(const std::string& label, const std::u32string& alphabet) {
    std::string utf8(cTextBytes + 4, '\0');
    char* w = utf8.data();
    for (uint32_t x = 1; w < utf8.data() + cTextBytes; x = x * 1664525 + 1013904223)
        w = ScalarEncode(w, alphabet[(x >> 16) % alphabet.size()]);
    utf8.resize(static_cast<size_t>(w - utf8.data()));
    const size_t room = utf8.size() + 1;
    std::vector<wchar_t> wide(room);
    std::string back(room, '\0');
    const size_t n = ScalarDecode(utf8, wide.data());
    const std::vector<wchar_t> expected(wide.begin(), wide.begin() + static_cast<std::ptrdiff_t>(n));

    const double megabytes = static_cast<double>(utf8.size()) / 1e6;
    const auto speed = [&](const std::string& name, auto f, const std::string& vs = "") {
        Timed(name, "MB/s", cTimes, megabytes, f, vs);
    };
    const std::string to32 = "text." + label + ".to_utf32", to8 = "text." + label + ".to_utf8";
    const iconv_t to = iconv_open("UTF-32LE", "UTF-8"), from = iconv_open("UTF-8", "UTF-32LE");
    speed(to32 + ".iconv", [&] { Keep(Iconv(to, utf8.data(), utf8.size(), wide.data(), room * sizeof(wchar_t))); });
    speed(
        to32 + ".scalar", [&] { Keep(ScalarDecode(utf8, wide.data())); }, to32 + ".iconv");
    speed(
        to32, [&] { Keep(LCopyUTF32FromUTF8(wide.data(), utf8.c_str(), room)); }, to32 + ".scalar");
    if (!std::equal(expected.begin(), expected.end(), wide.begin()) || wide[n]) Fail("decoded text");

    speed(to8 + ".iconv", [&] { Keep(Iconv(from, wide.data(), n * sizeof(wchar_t), back.data(), room)); });
    speed(
        to8 + ".scalar",
        [&] {
            char* o = back.data();
            for (size_t i = 0; i < n; i++) o = ScalarEncode(o, static_cast<uint32_t>(wide[i]));
            Keep(static_cast<size_t>(o - back.data()));
        },
        to8 + ".iconv");
    back.assign(room, '#');
    speed(
        to8, [&] { Keep(LCopyUTF8FromUTF32(back.data(), wide.data(), room)); }, to8 + ".scalar");
    if (back.c_str() != utf8) Fail("round trip");
    iconv_close(to);
    iconv_close(from);
}

void Formatting() {
    constexpr int cCalls = 1000;
    const char* const text = "recording";
    const unsigned number = 20240229;
    const double real = 44100.125;
    char buffer[128];
    const auto each = [](const std::string& name, auto f, const std::string& vs = "") {
        Timed(
            name, "ns", 200, cCalls,
            [&] {
                for (int i = 0; i < cCalls; i++) f(i);
            },
            vs, 5);
    };
    each("text.format.snprintf", [&](int i) {
        Keep(static_cast<size_t>(snprintf(buffer, sizeof buffer, "%s_%u %05d %.2f", text, number, 42 + i, real)));
    });
#ifdef WITH_FMT
    each("text.format.fmt_sprintf",
         [&](int i) { Keep(fmt::sprintf("%s_%u %05d %.2f", text, number, 42 + i, real).size()); });
#endif
    each(
        "text.format",
        [&](int i) { Keep(tplsnprintf(buffer, sizeof buffer, "%s_%u %05d %.2f", text, number, 42 + i, real)); },
        "text.format.snprintf");
    LStringLongTemplate<char> string;
    each(
        "text.format.long_string", [&](int i) { Keep(string.sprintf("%s_%u %05d %.2f", text, number, 42 + i, real)); },
        "text.format.snprintf");
}

}  // namespace

int main() {
    Charset("ascii", U"abcdefghijklmnopqrstuvwxyz ABCDEFG 0123456789");
    Charset("latin", U"abcdefghijklmnop qrstu eaoi n\u00E9\u00E8\u00FC\u00F1\u0153\u0142\u00E5\u2019");
    Charset("cjk", U"\u65E5\u672C\u8A9E\u97F3\u697D\u9332\u4E2D\u6587\u6771\u4EAC\u3042\u3044\u30AB\u30BF\u3002");
    Formatting();
}
