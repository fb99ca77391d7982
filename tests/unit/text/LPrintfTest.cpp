#include "text/LPrintf.h"
#include "text/LStringShort.h"

#include <bit>
#include <cfloat>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

// What the engine makes of a format and its arguments, in a buffer that must not be overrun.
template <class... A>
std::string Printed(const char* format, A... args) {
    char buffer[512];
    memset(buffer, '#', sizeof buffer);
    const unsigned long stored = tplsnprintf(buffer, 400, format, args...);
    EXPECT_EQ(buffer[stored], 0);
    EXPECT_EQ(buffer[400], '#');
    return {buffer, stored};
}

TEST(LPrintf, Dialect) {
    EXPECT_EQ(Printed("%5%|%%"), "%|%");
    EXPECT_EQ(Printed("%10s|%.3s", "ab", "abcdef"), "ab|abcdef");
    EXPECT_EQ(Printed("[%s]%d", static_cast<const char*>(nullptr), 7), "[]7");
    EXPECT_EQ(Printed("%s_%u %05d %.2f", "rec", 12u, 42, 3.14159), "rec_12 00042 3.14");
    EXPECT_EQ(Printed("%E %G %F", 1.5, 0.25, 2.0), "1.500000E+00 0.25 2.000000");
    EXPECT_EQ(Printed("%p", reinterpret_cast<const void*>(0x123456789ab)), "0x123456789ab");
    // What the dialect doesn't know is itself the conversion: it uses up one word and prints nothing.
    EXPECT_EQ(Printed("%ld|%u", 42, 7), "d|7");
    EXPECT_EQ(Printed("%-5d|%u", 42, 7), "5d|7");
    EXPECT_EQ(Printed("%*d|%u", 42, 7), "d|7");
    EXPECT_EQ(Printed("a%cb", 0), "ab");
    EXPECT_EQ(Printed("a%", 1), "a");
    EXPECT_EQ(Printed("a%05.", 1), "a");
    EXPECT_EQ(Printed(nullptr), "");
    EXPECT_EQ(Printed("%.2f%d%s%g%d%s%e%d%d%d%f%s", 1.0, 1, "x", 2.0, 2, "y", 3.0, 3, 4, 5, 4.0, "z"),
              "1.001x22y3.000000e+003454.000000z");
}

TEST(LPrintf, DangerousConversionsTouchNothing) {
    int victim = 77;
    for (char conversion : {'n', 'S', '*', '$', 'l', 'h', 'I'}) {
        const std::string format = std::string("<%999999999") + conversion + ">%d";
        char buffer[32];
        tplsnprintf(buffer, sizeof buffer, format.c_str(), &victim, 5);
        EXPECT_STREQ(buffer, "<>5") << conversion;
    }
    EXPECT_EQ(victim, 77);
}

// Whatever shortcut the engine takes for integers, the text is the system's.
TEST(LPrintf, IntegersAreWhatTheSystemPrints) {
    const char* const runs[] = {
        "", "0", "5", "05", "1", "01", "12", "012", "99", "099", "00", "005", ".", ".5", "8.3", "08.3", "100", "0100",
    };
    for (const char* run : runs) {
        for (char kind : {'d', 'i', 'u', 'x', 'X', 'o', 'c'}) {
            const std::string format = std::string("%") + run + kind;
            unsigned value = 1;
            for (int i = 0; i < 400; i++) {
                static constexpr unsigned boundaries[] = {0, 1, 9, 10, 99999, 100000, INT_MAX, INT_MAX + 1u, UINT_MAX};
                value = i < 9 ? boundaries[i] : (value * 1664525 + 1013904223) >> (i % 31);
                char expected[200];
                const int length = snprintf(expected, sizeof expected, format.c_str(), value);
                if (length < 0) *expected = 0;
                ASSERT_EQ(Printed(format.c_str(), value), expected) << format << " of " << value;
            }
        }
    }
}

// Conversions longer than the scratch are cut to its 259 characters; huge numbers in the format neither change that
// text nor make the system's formatter work through them.
// The same for real numbers: halves that round either way, the ends of the range, and any.
TEST(LPrintf, RealNumbersAreWhatTheSystemPrints) {
    std::vector<double> values = {
        0.0,     -0.0,    0.5,    1.5,      2.5,       0.125, 0.375, -2.675, 1e15, 1e22,
        DBL_MAX, DBL_MIN, 5e-324, INFINITY, -INFINITY, NAN,   0.05,  99.995, 1e-7, 123456789.987654321};
    std::mt19937_64 random(1);
    while (values.size() < 5000) values.push_back(std::bit_cast<double>(random()));
    while (values.size() < 10000) values.push_back(static_cast<double>(random() % 2'000'000'000) / 1024 - 1e6);
    for (const char* run : {"", ".", ".0", ".1", ".2", ".17", ".99", "8.3", "08.2", "3", "..2", ".2.", ".100"}) {
        const std::string format = std::string("%") + run + "f";
        for (const double value : values) {
            char expected[260] = "";
            if (snprintf(expected, sizeof expected, format.c_str(), value) < 0) expected[0] = 0;
            ASSERT_EQ(Printed(format.c_str(), value), expected) << format << " of " << value;
        }
    }
}

TEST(LPrintf, LongConversionsAreCutAtOnce) {
    const char* const runs[] = {"300",       "0300",      ".300",      "400.300",    "300.400",
                                "4000",      "4200.4100", "4100.4200", "04500.4100", "8000.4001",
                                "8300.8200", ".5000",     "5000.3",    "0005000",    "300.5000"};
    const double reals[] = {1e300, -0.1, 1.0 / 3, std::numeric_limits<double>::denorm_min(), INFINITY, 0, -1e300};
    char expected[260];
    for (const char* run : runs) {
        for (char kind : {'d', 'x', 'c', 'y'}) {  // y is none: it is printed as it stands
            const std::string format = std::string("%") + run + kind;
            snprintf(expected, sizeof expected, format.c_str(), -42);
            EXPECT_EQ(Printed(format.c_str(), -42), expected) << format;
        }
        for (char kind : {'f', 'e', 'g', 'a'}) {
            const std::string format = std::string("%") + run + kind;
            for (double real : reals) {
                snprintf(expected, sizeof expected, format.c_str(), real);
                EXPECT_EQ(Printed(format.c_str(), real), expected) << format << " of " << real;
            }
        }
    }
    EXPECT_EQ(Printed("%f", 1e300).size(), 259u);

    const clock_t start = clock();
    EXPECT_EQ(Printed("%2000000000d", 1), std::string(259, ' '));
    EXPECT_EQ(Printed("%.2000000000f", 0.5), "0.5" + std::string(256, '0'));
    EXPECT_EQ(Printed("|%99999999999999999999d|%.3000000000f|", 1, 2.0), "|||");
    EXPECT_EQ(Printed(("%" + std::string(300, '0') + "7d").c_str(), 5), "5");  // the run is cut before the 7
    EXPECT_LT(clock() - start, CLOCKS_PER_SEC / 20);
}

TEST(LPrintf, FixedBuffersAreCutAndKeepTheirPlace) {
    char buffer[] = "########";
    EXPECT_EQ(tplsnprintf(buffer, 8, "%s_%u", "abcdef", 12), 7u);
    EXPECT_STREQ(buffer, "abcdef_");
    EXPECT_EQ(tplsnprintf(buffer, 1, "%s", "x"), 0u);
    EXPECT_STREQ(buffer, "");
    buffer[0] = 'q';
    EXPECT_EQ(tplsnprintf(buffer, 0, "%s", "x"), 0u);
    EXPECT_EQ(buffer[0], 'q');

    char target[] = "#######";
    LFixedLengthStringWriterTemplate<char> writer(target, 5);
    EXPECT_EQ(sprintf(writer, "%u", 12), 2u);
    tplstrcpy<LFixedLengthStringWriterTemplate<char>, char>(writer, "a");
    writer.AddChar('b');
    EXPECT_EQ(sprintf(writer, "%u", 345), 5u);
    EXPECT_EQ(sprintf(writer, "%s", "more"), 5u);
    writer.AddChar('x');
    EXPECT_STREQ(target, "12ab3##");  // no terminator
}

TEST(LPrintf, FixedTargetsMayBeTheirOwnArguments) {
    char buffer[16] = "path";
    EXPECT_EQ(tplsnprintf(buffer, sizeof buffer, "/%s/%s", buffer, buffer), 10u);
    EXPECT_STREQ(buffer, "/path/path");
    EXPECT_EQ(tplsnprintf(buffer, sizeof buffer, "%s%s%s", buffer, buffer + 5, buffer), 15u);
    EXPECT_STREQ(buffer, "/path/path/path");
    char format[8] = "%s%s";
    tplsnprintf(format, sizeof format, format, "12", "3456789");
    EXPECT_STREQ(format, "1234567");
}

TEST(LPrintf, ShortStringHolds259Characters) {
    const std::string output(300, 'x');
    const LStringShortTemplate<char> cut(LStringPrintFormatTemplate<char>{"%s"}, output.c_str());
    EXPECT_EQ(cut.Get(), output.substr(0, 259));
    const LStringShortTemplate<char> whole(LStringPrintFormatTemplate<char>{"%s_%u"}, "ab", 3);
    EXPECT_STREQ(whole.Get(), "ab_3");
    EXPECT_STREQ(LStringShortTemplate<char>().Get(), "");
}

TEST(LPrintf, StandardOutputUsesTheSystemsLanguage) {
    testing::internal::CaptureStdout();
    tprintf("%-4s|%ld|", "ab", 1L << 40);
    tprintf(nullptr);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ab  |1099511627776|");
}

}  // namespace
