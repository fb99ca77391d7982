#include "text/LAscii.h"
#include "text/LCopyBounded.h"

#include <clocale>
#include <gtest/gtest.h>
#include <strings.h>

namespace {

// The "C" locale's own functions are the reference: for each pair of bytes the sign of the comparison, for each byte
// its class. The process' locale is "C" unless a test sets another one.
TEST(LAscii, AgreesWithTheCLocaleOnEveryByte) {
    ASSERT_STREQ(setlocale(LC_ALL, nullptr), "C");
    const auto sign = [](int x) { return (x > 0) - (x < 0); };
    for (int x = 0; x < 256; x++) {
        const char c = static_cast<char>(x);
        EXPECT_EQ(LIsAsciiAlpha(c), isalpha(x) != 0) << x;
        EXPECT_EQ(LIsAsciiAlphaNumeric(c), isalnum(x) != 0) << x;
        EXPECT_EQ(LAsciiToLower(c), static_cast<char>(tolower(x))) << x;
        EXPECT_EQ(LAsciiToUpper(c), static_cast<char>(toupper(x))) << x;
        for (int y = 0; y < 256; y++) {
            const char a[] = {'q', c, 'x', 0}, b[] = {'Q', static_cast<char>(y), 'X', 0};
            ASSERT_EQ(LAsciiCompareNoCase(a, b), sign(strcasecmp(a, b))) << x << " " << y;
        }
    }
}

TEST(LAscii, ComparesWithinTheCount) {
    EXPECT_EQ(LAsciiCompareNoCase("abc", "abD", 2), 0);
    EXPECT_LT(LAsciiCompareNoCase("abc", "abD", 3), 0);
    EXPECT_EQ(LAsciiCompareNoCase("ab", "AB", 100), 0);
    EXPECT_GT(LAsciiCompareNoCase("ab", "A"), 0);
    EXPECT_EQ(LAsciiCompareNoCase("x", "y", 0), 0);
    EXPECT_EQ(LAsciiCompareNoCase(nullptr, ""), 0);
    EXPECT_LT(LAsciiCompareNoCase(nullptr, "a"), 0);
}

TEST(LCopyBounded, CutsTerminatesAndTellsTheFullLength) {
    const struct {
        const char* source;
        unsigned long size;
        const char* expected;
        unsigned long result;
    } cases[] = {{"abc", 5, "abc", 3}, {"abc", 4, "abc", 3}, {"abc", 3, "ab", 3},
                 {"abc", 1, "", 3},    {"abc", 0, "###", 3}, {nullptr, 4, "", 0}};
    for (const auto& expected : cases) {
        char buffer[] = "###";
        EXPECT_EQ(LCopyBounded(buffer, expected.source, std::min(expected.size, sizeof buffer)), expected.result);
        EXPECT_STREQ(buffer, expected.expected);
    }
    wchar_t wide[3];
    EXPECT_EQ(LCopyBounded(wide,
                           L"\x20AC"
                           L"bc",
                           3),
              3u);
    EXPECT_STREQ(wide, L"\x20AC"
                       L"b");

    char overlapping[] = "abcdef";
    LCopyBounded(overlapping, overlapping + 2, sizeof overlapping);
    EXPECT_STREQ(overlapping, "cdef");
}

TEST(LCopyBounded, AppendsWithinTheBuffer) {
    char buffer[6] = "ab";
    EXPECT_EQ(LAppendBounded(buffer, "cd", sizeof buffer), 4u);
    EXPECT_STREQ(buffer, "abcd");
    EXPECT_EQ(LAppendBounded(buffer, "efg", sizeof buffer), 7u);
    EXPECT_STREQ(buffer, "abcde");
    char full[3] = {'x', 'y', 'z'};
    LAppendBounded(full, "q", sizeof full);
    EXPECT_TRUE(full[0] == 'x' && full[2] == 'z');
}

}  // namespace
