#include "text/LCharsetsAnsi.h"
#include "text/LCharsetsIconv.h"
#include "text/LCharsetsUTF8.h"
#include "text/LCharsetsUnicode.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace {

using Units = std::basic_string<unsigned short>;

// Runs f on a buffer of exactly `size` characters, so that the sanitizers see every step outside it; gives its text.
template <class T, class F>
std::basic_string<T> Filled(unsigned long size, F f) {
    const std::unique_ptr<T[]> buffer(new T[size]);
    std::fill_n(buffer.get(), size, static_cast<T>('#'));
    f(buffer.get(), size);
    return buffer.get();
}

// A copy of the text on the heap without a byte behind its terminator.
class Exact {
public:
    explicit Exact(const std::string& text) : copy(new char[text.size() + 1]) {
        memcpy(copy.get(), text.c_str(), text.size() + 1);
    }
    const char* Get() const { return copy.get(); }

private:
    std::unique_ptr<char[]> copy;
};

struct Decoded {
    std::wstring text;
    unsigned long result;
    bool operator==(const Decoded&) const = default;
};

Decoded Decode(const std::string& text, unsigned long size) {
    unsigned long result = 99;
    const Exact source(text);
    std::wstring decoded = Filled<wchar_t>(
        size, [&](wchar_t* dst, unsigned long n) { result = LCopyUTF32FromUTF8(dst, source.Get(), n); });
    return {decoded, result};
}

// The same rules, one byte at a time from the table of legal byte sequences.
Decoded DecodePlainly(const std::string& text, unsigned long size) {
    static constexpr struct {
        int firstLow, firstHigh, secondLow, secondHigh, length;
    } legal[] = {{0x00, 0x7F, 0, 0, 1},       {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
                 {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
                 {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4}};
    std::wstring out;
    for (size_t at = 0; at < text.size();) {
        const auto byte = [&](size_t i) { return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0; };
        const int lead = byte(0);
        const size_t claimed = lead < 0xC0   ? 1
                               : lead < 0xE0 ? 2
                               : lead < 0xF0 ? 3
                               : lead < 0xF8 ? 4
                               : lead < 0xFC ? 5
                                             : 6;
        if (at + claimed >= size) return {out, 1};
        int length = 0;
        for (const auto& row : legal) {
            if (lead < row.firstLow || lead > row.firstHigh) continue;
            if (row.length == 1 || (byte(1) >= row.secondLow && byte(1) <= row.secondHigh)) length = row.length;
        }
        for (int i = 2; i < length; i++)
            if ((byte(static_cast<size_t>(i)) & 0xC0) != 0x80) length = 0;
        if (!length) return {out, 2};
        int value = length == 1 ? lead : lead & (0x7F >> length);
        for (int i = 1; i < length; i++) value = value << 6 | (byte(static_cast<size_t>(i)) & 0x3F);
        out += static_cast<wchar_t>(value);
        at += static_cast<size_t>(length);
    }
    return {out, 0};
}

TEST(LCharsetsUTF8, DecodesUpToTheLimitOrTheFirstIllegalByte) {
    EXPECT_EQ(Decode("abc", 3), (Decoded{L"ab", 1}));
    EXPECT_EQ(Decode("abc", 4), (Decoded{L"abc", 0}));
    EXPECT_EQ(Decode("", 1), (Decoded{L"", 0}));
    EXPECT_EQ(Decode("x", 1), (Decoded{L"", 1}));
    EXPECT_EQ(Decode("a\xC3\xA9", 3), (Decoded{L"a", 1}));  // the limit counts bytes
    EXPECT_EQ(Decode("a\xC0\x80"
                     "b",
                     9),
              (Decoded{L"a", 2}));
    EXPECT_EQ(Decode("\xED\xA0\x80", 9), (Decoded{L"", 2}));
    EXPECT_EQ(Decode("a\xF8\x88\x80\x80\x80", 9), (Decoded{L"a", 2}));
    EXPECT_EQ(Decode("\xF0\x9F\x98\x80\xE2\x82\xAC", 9), (Decoded{L"\x1F600\x20AC", 0}));
    EXPECT_EQ(Decode("a\xE2\x82", 9), (Decoded{L"a", 2}));  // cut by the terminator
    EXPECT_EQ(Decode("a\xE2\x82", 4), (Decoded{L"a", 1}));  // its claimed length passes the limit
    wchar_t untouched = L'#';
    EXPECT_EQ(LCopyUTF32FromUTF8Native(&untouched, "x", 0), 1u);
    EXPECT_EQ(untouched, L'#');
    EXPECT_EQ(LCopyUTF32FromUTF8Native(&untouched, nullptr, ~0ul), 0u);
    EXPECT_EQ(untouched, 0);
}

// Every two-byte beginning, with trailing bytes at the boundaries, inside ASCII runs of all lengths around a block.
TEST(LCharsetsUTF8, DecodesLikeThePlainTable) {
    for (int first = 0x80; first < 0x100; first++) {
        for (int second = 1; second < 0x100; second++) {
            for (const char* rest : {"", "\x80", "\xBF\x80z", "\x7F", "\x80\xC0"}) {
                const std::string text{static_cast<char>(first), static_cast<char>(second)};
                ASSERT_EQ(Decode(text + rest, 16), DecodePlainly(text + rest, 16))
                    << first << " " << second << " " << rest;
            }
        }
    }
    uint32_t random = 7;
    const char* const pieces[] = {
        "a", "bcdefgh", "ABCDEFGHIJKLMNOPQ", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xC3", "\xFF"};
    for (int i = 0; i < 20000; i++) {
        std::string text;
        for (int n = i % 9; n > 0; n--)
            text += pieces[((random = random * 1664525 + 1013904223) >> 20) % (i % 4 ? 6 : 8)];
        const unsigned long size = 1 + (random >> 9) % (text.size() + 2);
        ASSERT_EQ(Decode(text, size), DecodePlainly(text, size)) << text << " " << size;
    }
}

TEST(LCharsetsUTF8, EncodesWholeCharacters) {
    unsigned long result = 99;
    const auto encode = [&](const std::wstring& text, unsigned long size) {
        return Filled<char>(size,
                            [&](char* dst, unsigned long n) { result = LCopyUTF8FromUTF32(dst, text.c_str(), n); });
    };
    const struct {
        std::wstring text;
        std::string utf8;
        unsigned long result;
    } cases[] = {{L"\x7F\x80\x7FF\x800\xFFFF", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF", 0},
                 {{wchar_t(0x10000), wchar_t(0x10FFFF)}, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", 0},
                 {{wchar_t(0x110000), L'a', wchar_t(-1)},
                  "\xEF\xBF\xBD"
                  "a\xEF\xBF\xBD",
                  2},
                 {{wchar_t(0xD800)}, "\xED\xA0\x80", 0},
                 {L"abcdefghijklmnopq\xE9"
                  L"abcdefghijklmnopqrstuvw",
                  "abcdefghijklmnopq\xC3\xA9"
                  "abcdefghijklmnopqrstuvw",
                  0},
                 {L"", "", 0}};
    for (const auto& expected : cases) {
        EXPECT_EQ(encode(expected.text, expected.utf8.size() + 1), expected.utf8);
        EXPECT_EQ(result, expected.result);
        for (unsigned long size = 1; size <= expected.utf8.size(); size++) {  // cut: the longest whole beginning
            unsigned long kept = size - 1;
            while ((expected.utf8[kept] & 0xC0) == 0x80) kept--;
            const std::string cut = encode(expected.text, size);
            EXPECT_EQ(cut, expected.utf8.substr(0, kept));
            EXPECT_EQ(result, cut.find("\xEF\xBF\xBD") == cut.npos ? 0u : 2u);
        }
    }
    char untouched = '#';
    EXPECT_EQ(LCopyUTF8FromUTF32Native(&untouched, L"x", 0), 0u);
    EXPECT_EQ(untouched, '#');
}

TEST(LCharsetsUTF8, WalkersNeverPassTheTerminator) {
    const Exact text("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(utf8strlen(text.Get()), 4u);
    const unsigned long charToByte[] = {0, 1, 3, 6, 10, 10}, byteToChar[] = {0, 1, 2, 2, 3, 3, 3, 4, 4, 4, 4, 4};
    for (unsigned long i = 0; i < std::size(charToByte); i++)
        EXPECT_EQ(LCharsetsUTF8CharIndexToByteIndex(text.Get(), i), charToByte[i]);
    for (unsigned long i = 0; i < std::size(byteToChar); i++)
        EXPECT_EQ(LCharsetsUTF8ByteIndexToCharIndex(text.Get(), i), byteToChar[i]);

    for (const char* cut : {"a\xC3", "a\xE2\x82", "a\xF0\x9F\x98", "a\xFC\x80"}) {
        const Exact source(cut);
        EXPECT_EQ(utf8strlen(source.Get()), 2u);
        EXPECT_EQ(LCharsetsUTF8CharIndexToByteIndex(source.Get(), 5), strlen(cut));
        EXPECT_EQ(LCharsetsUTF8ByteIndexToCharIndex(source.Get(), 50), 2u);
        EXPECT_EQ(Filled<char>(20, [&](char* dst,
                                       unsigned long n) { EXPECT_EQ(utf8strlcpy(dst, source.Get(), n), strlen(cut)); }),
                  cut);
    }
    EXPECT_EQ(utf8strlen(nullptr), 0u);
    EXPECT_EQ(LCharsetsUTF8CharIndexToByteIndex("", 3), 0u);
}

TEST(LCharsetsUTF8, CopiesWholeCharacters) {
    const unsigned long copied[] = {0, 0, 1, 1, 3, 3};
    for (unsigned long size = 0; size < std::size(copied); size++) {
        char buffer[8] = "#######";
        EXPECT_EQ(utf8strlcpy(buffer, "a\xC3\xA9", size), copied[size]);
        EXPECT_EQ(buffer, size ? std::string("a\xC3\xA9").substr(0, copied[size]) : "#######");
    }
}

TEST(LCharsetsUnicode, UnitsAreCharacters) {
    const unsigned short pair[] = {0xD83D, 0xDE00, 0};
    const auto toUTF8 = [&](unsigned long size) {
        return Filled<char>(size, [&](char* dst, unsigned long n) { LCopyUTF8FromUnicode(dst, pair, n); });
    };
    EXPECT_EQ(toUTF8(7), "\xED\xA0\xBD\xED\xB8\x80");
    EXPECT_EQ(toUTF8(6), "\xED\xA0\xBD");  // cut at a character
    EXPECT_EQ(toUTF8(1), "");
    EXPECT_EQ(Filled<wchar_t>(3, [&](wchar_t* dst, unsigned long n) { LCopyUTF32FromUnicode(dst, pair, n); }),
              L"\xD83D\xDE00");
    const auto narrow = [](const std::wstring& text, unsigned long size) {
        return Filled<unsigned short>(size, [&](unsigned short* dst, unsigned long n) {
            EXPECT_EQ(LCopyUnicodeFromUTF32(dst, text.c_str(), n), dst);
        });
    };
    EXPECT_EQ(narrow(L"\x1F600"
                     L"b",
                     3),
              (Units{0xF600, 'b'}));
    EXPECT_EQ(narrow(L"\x1F600"
                     L"b",
                     2),
              (Units{0xF600}));
    const auto fromUTF8 = [](const char* text, unsigned long size) {
        return Filled<unsigned short>(
            size, [&](unsigned short* dst, unsigned long n) { LCopyUnicodeFromUTF8(dst, text, n); });
    };
    EXPECT_EQ(fromUTF8("a\xC3\xA9", 4), (Units{'a', 0xE9}));
    EXPECT_EQ(fromUTF8("a\xC3\xA9", 3), (Units{'a'}));  // the limit counts source bytes
    EXPECT_EQ(fromUTF8("a\xFF"
                       "b",
                       9),
              (Units{'a'}));
    unsigned short untouched = '#';
    LCopyUnicodeFromUTF8(&untouched, "x", 0);
    LCopyUnicodeFromUTF32(&untouched, L"x", 0);
    EXPECT_EQ(untouched, '#');
    EXPECT_EQ(lstrlen(pair), 2u);

    const std::string text(300, 'x');
    EXPECT_EQ(lstrlen(Filled<unsigned short>(
                          260, [&](unsigned short* dst, unsigned long) { LCopyUnicodeFromUTF8(dst, text.c_str()); })
                          .c_str()),
              259u);
    const Units units(300, 0x20AC);
    EXPECT_EQ(Filled<char>(260, [&](char* dst, unsigned long) { LCopyUTF8FromUnicode(dst, units.c_str()); }).size(),
              258u);
}

TEST(LCharsetsUnicode, LongStringsGrow) {
    LStringLongTemplate<char> utf8, back;
    LStringLongTemplate<unsigned short> unicode;
    EXPECT_EQ(LCopyUnicodeFromUTF8(unicode, utf8), 0u);  // a source without a buffer
    EXPECT_NE(unicode.Buffer(), nullptr);
    utf8 = "a\xC3\xA9\xE2\x82\xAC";
    EXPECT_EQ(LCopyUnicodeFromUTF8(unicode, utf8), 3u);
    EXPECT_EQ(Units(unicode.Get()), (Units{'a', 0xE9, 0x20AC}));
    EXPECT_EQ(LCopyUTF8FromUnicode(back, unicode), 6u);
    EXPECT_STREQ(back.Get(), utf8.Get());
    EXPECT_EQ(back.Capacity(), 19u);
    back = "old text";
    EXPECT_EQ(LCopyFromUnicode(back, unicode.Get()), 6u);
    EXPECT_STREQ(back.Get(), utf8.Get());
    EXPECT_EQ(LCopyFromUnicode(back, nullptr), 0u);
    EXPECT_STREQ(back.Get(), "");
}

TEST(LCharsetsUnicode, BigEndianFields) {
    const unsigned short source[] = {'A', 'B', 0};
    const auto bytes = [&](unsigned long count, bool terminate, unsigned long expected) {
        unsigned short field[5] = {0x2323, 0x2323, 0x2323, 0x2323, 0x2323};
        EXPECT_EQ(LCopyToBigEndianUnicode(field, source, count, terminate), expected);
        return std::string(reinterpret_cast<const char*>(field), 10);
    };
    using namespace std::string_literals;
    EXPECT_EQ(bytes(4, false, 4), "\0A\0B\0 \0 ##"s);
    EXPECT_EQ(bytes(4, true, 2), "\0A\0B\0\0####"s);
    EXPECT_EQ(bytes(1, false, 1), "\0A########"s);
    EXPECT_EQ(bytes(1, true, 1), "\0A\0\0######"s);
    EXPECT_EQ(bytes(0, false, 0), "##########"s);
}

TEST(LCharsetsAnsi, AllOrNothing) {
    const auto toAnsi = [](const char* text, unsigned long size) {
        return Filled<char>(size, [&](char* dst, unsigned long n) { LCopyAnsiFromUTF8(dst, text, n); });
    };
    EXPECT_EQ(toAnsi("a\xC3\xA9", 4), "a\xE9");
    EXPECT_EQ(toAnsi("\xE2\x82\xAC"
                     "a",
                     9),
              "");                      // written as ISO Latin 1, which has no euro sign
    EXPECT_EQ(toAnsi("abc", 3), "ab");  // the limit is the decoder's, in bytes
    const auto fromAnsi = [](const char* text, unsigned long size) {
        return Filled<char>(size, [&](char* dst, unsigned long n) { LCopyUTF8FromAnsi(dst, text, n); });
    };
    EXPECT_EQ(fromAnsi("\x80", 4), "\xE2\x82\xAC");  // read as Windows Latin 1
    EXPECT_EQ(fromAnsi("\x80", 3), "");              // the unit fits, its bytes don't
    EXPECT_EQ(fromAnsi("abc", 4), "abc");
    EXPECT_EQ(fromAnsi("abc", 3), "");
    const std::string large(5000, 'x');  // above the fixed scratch
    EXPECT_EQ(toAnsi(large.c_str(), 5001), large);
    EXPECT_EQ(fromAnsi(large.c_str(), 5001), large);
    char inPlace[8] = "\xE9";
    LCopyUTF8FromAnsi(inPlace, inPlace, sizeof inPlace);
    EXPECT_STREQ(inPlace, "\xC3\xA9");
    LCopyAnsiFromUTF8(inPlace, inPlace, sizeof inPlace);
    EXPECT_STREQ(inPlace, "\xE9");
}

TEST(LCharsetsAnsi, LongStrings) {
    LStringLongTemplate<char> ansi, back;
    LStringLongTemplate<unsigned short> unicode;
    EXPECT_EQ(LCopyUnicodeFromAnsi(unicode, ansi), 0u);
    EXPECT_EQ(LCopyAnsiFromUnicode(back, unicode), 0u);
    ansi = "a\x80\xE9";
    EXPECT_EQ(LCopyUnicodeFromAnsi(unicode, ansi), 3u);
    EXPECT_EQ(Units(unicode.Get()), (Units{'a', 0x20AC, 0xE9}));
    back = "old";
    EXPECT_EQ(LCopyAnsiFromUnicode(back, unicode), 0u);
    EXPECT_STREQ(back.Get(), "");
    const unsigned short latin[] = {'a', 0xE9, 0};
    EXPECT_EQ(LCopyAnsiFromUnicode(back, latin), 2u);
    EXPECT_STREQ(back.Get(), "a\xE9");
}

TEST(LCharsetsIconv, KeepsWhatFitsAndEndsWithWholeCharacters) {
    const auto from = [](const char* text, unsigned long size) {
        return Filled<char>(size, [&](char* dst, unsigned long n) { LCopyFromISO88591(dst, text, n); });
    };
    EXPECT_EQ(from("\xE9t\xE9", 6), "\xC3\xA9t\xC3\xA9");
    EXPECT_EQ(from("\xE9t\xE9", 5), "\xC3\xA9t");  // filled exactly, without the terminator
    EXPECT_EQ(from("\xE9t\xE9", 4), "\xC3\xA9t");
    EXPECT_EQ(from("\xE9t", 3), "\xC3\xA9");
    EXPECT_EQ(from("x", 1), "");
    EXPECT_EQ(Filled<char>(4, [](char* dst, unsigned long) { LCopyFromISO88591(dst, "\xE9t\xE9"); }), "\xC3\xA9t");

    const auto to = [](const char* text, unsigned long size) {
        return Filled<char>(size, [&](char* dst, unsigned long n) { LCopyToISO88591(dst, text, n); });
    };
    EXPECT_EQ(to("\xC2\xA9\xC2\xA9", 3), "\xA9\xA9");
    EXPECT_EQ(to("\xC2\xA9\xC2\xA9", 2), "\xA9");
    EXPECT_EQ(to("a\xE2\x82\xAC"
                 "b",
                 9),
              "a");  // no euro sign in the page
    EXPECT_EQ(to("a\xC3", 9), "a");
    EXPECT_EQ(Filled<char>(3, [](char* dst, unsigned long) { LCopyToISO88591(dst, "\xC3\xA9"); }), "\xE9");
    char shared[16] = "abcdef";
    LCopyToISO88591(shared + 3, shared, 9);
    EXPECT_STREQ(shared, "abcabcdef");
    LCopyToISO88591(shared, shared + 3, 9);
    EXPECT_STREQ(shared, "abcdef");
    char untouched = '#';
    LCopyToISO88591(&untouched, "x", 0);
    EXPECT_EQ(untouched, '#');
}

TEST(LCharsetsIconv, EveryPageIntoLongStringsAndBack) {
    using Text = LStringLongTemplate<char>;
    using Copy = void (*)(Text&, const char*);
    const struct {
        Copy from, to;
        const char* page;
        const char* utf8;
    } pages[] = {{LCopyFromISO88591, LCopyToISO88591, "a\xE9\x80", "a\xC3\xA9\xC2\x80"},
                 {LCopyFromWIN1252, LCopyToWIN1252, "a\xE9\x80", "a\xC3\xA9\xC2\x80"},
                 {LCopyFromISO88595, LCopyToISO88595, "\xB0\xD0", "\xD0\x90\xD0\xB0"}};
    for (const auto& page : pages) {
        Text text;
        text = page.page;
        page.from(text, text.Get());  // in place
        EXPECT_STREQ(text.Get(), page.utf8);
        EXPECT_EQ(text.Length(), strlen(page.utf8));
        page.to(text, text.Get());
        EXPECT_STREQ(text.Get(), page.page);
        page.from(text, nullptr);
        EXPECT_STREQ(text.Get(), "");
    }
    Text text;
    for (auto copy : {static_cast<unsigned long (*)(Text&, const char*)>(LCopyFromSHIFTJIS932), LCopyToSHIFTJIS932,
                      LCopyFromEUCKR, LCopyToEUCKR}) {
        EXPECT_EQ(copy(text, "\x93\xFA\xA4"), 3u);
        EXPECT_STREQ(text.Get(), "\x93\xFA\xA4");
        EXPECT_EQ(text.Length(), 3u);
    }
    char cut[3];
    EXPECT_EQ(LCopyToEUCKR(cut, "abcd", sizeof cut), 4u);
    EXPECT_STREQ(cut, "ab");
}

}  // namespace
