#include "text/LCFBundle.h"
#include "text/LCFString.h"
#include "text/LCFURL.h"
#include "text/LToFSSpec.h"
#include "text/LUnicodeString.h"

#include "support/TempFolder.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

std::string Utf8Of(const LCFString& string) {
    LStringLongTemplate<char> text;
    text = "before";
    string.GetString(text);
    return text.Get();
}

std::wstring Utf32Of(const LCFString& string) {
    LStringLongTemplate<wchar_t> text;
    text = L"before";
    string.GetString(text);
    return text.Get();
}

TEST(LCFString, TextsGoInAndOut) {
    const struct {
        std::string in, utf8;
        std::wstring utf32;
    } cases[] = {
        {"", "", L""},
        {"aé€", "aé€", L"aé€"},
        {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80", {0xD83D, 0xDE00}},
        {"ab\xC0\x80"
         "c",
         "ab", L"ab"},  // no UTF-8: as far as it is
        {"\xFF", "", L""},
        {std::string(100000, 'x'), std::string(100000, 'x'), std::wstring(100000, L'x')},
    };
    LCFString string;
    EXPECT_EQ(Utf8Of(string), "");
    for (const auto& c : cases) {
        string.SetString(c.in.c_str());
        EXPECT_NE(string.Get(), nullptr);
        EXPECT_EQ(Utf8Of(string), c.utf8);
        EXPECT_EQ(Utf32Of(string), c.utf32);
    }
    string.SetString(nullptr);
    EXPECT_EQ(CFStringGetLength(string.Get()), 0);
}

TEST(LCFString, BuffersHoldWholeCharacters) {
    LCFString string;
    string.SetString("aéb");
    const struct {
        unsigned long size;
        const char* utf8;
        const wchar_t* utf32;
    } cases[] = {{0, "##", L"##"}, {1, "", L""},      {2, "a", L"a"},
                 {3, "a", L"aé"},  {4, "aé", L"aéb"}, {8, "aéb", L"aéb"}};
    for (const auto& c : cases) {
        char narrow[9] = "##";
        wchar_t wide[9] = L"##";
        string.GetString(narrow, c.size);
        string.GetString(wide, c.size);
        EXPECT_STREQ(narrow, c.utf8) << c.size;
        EXPECT_STREQ(wide, c.utf32) << c.size;
    }
    char narrow[9] = "##";
    LCFString().GetString(narrow, sizeof narrow);
    EXPECT_STREQ(narrow, "");
}

TEST(LUnicodeString, PairsAreOneCharacterOfUtf8) {
    const unsigned short units[] = {'a', 0xD83D, 0xDE00, 0xD800, 0};
    LStringLongTemplate<char> narrow;
    LStringLongTemplate<wchar_t> wide;
    LUnicodeString(units).GetString(narrow);
    LUnicodeString(units).GetString(wide);
    EXPECT_STREQ(narrow.Get(), "a\xF0\x9F\x98\x80\xED\xA0\x80");
    EXPECT_EQ(std::wstring(wide.Get()), (std::wstring{L'a', 0xD83D, 0xDE00, 0xD800}));
    LUnicodeString().GetString(narrow);
    EXPECT_STREQ(narrow.Get(), "");
}

std::string PathOf(const LCFURL& url) {
    return url.Get() ? Utf8Of(LCFString(CFURLCopyFileSystemPath(url.Get(), kCFURLPOSIXPathStyle))) : "none";
}

TEST(LCFURL, PathsAreEscaped) {
    const struct {
        std::string path, escaped;
    } cases[] = {
        {"/a b", "%2Fa%20b"},
        {"-.!_~Az09", "-.!_~Az09"},
        {"é'", "%C3%A9%27"},
        {"", "none"},
        {std::string(300, 'x'), std::string(259, 'x')},
        {std::string(257, 'x') + "/y", std::string(257, 'x') + "%2"},
        {std::string(258, 'x') + "/y", std::string(258, 'x') + "%"},
        {std::string(256, 'x') + "/y", std::string(256, 'x') + "%2F"},
    };
    LCFURL url;
    for (const auto& c : cases) {
        url.CreateFromFullPath(c.path.c_str());
        EXPECT_EQ(PathOf(url), c.escaped);
    }
    url.CreateFromFullPath(nullptr);
    EXPECT_EQ(url.Get(), nullptr);
}

TEST(LCFBundle, VersionsAreTwoNumbers) {
    const struct {
        std::string text;
        int major, minor;
    } cases[] = {
        {"2.14", 2, 14},
        {"2.14.1", 2, 14},
        {"2.014", 2, 14},
        {" 2.14", 2, 14},
        {"2.14b3", 2, 14},
        {"V 2.14", 2, 14},
        {"V 3.0", 3, 0},
        {"V3.0", 0, 0},
        {"Version 2.14", 2, 14},
        {"v 2.14", 0, 14},
        {"7", 7, 0},
        {".5", 0, 5},
        {"x", 0, 0},
        {"-1.-2", -1, -2},
        {"4294967298.4294967310", INT_MAX, INT_MAX},
        {"-4294967298.0", INT_MIN, 0},
        {std::string(300, '9') + ".1", INT_MAX, 1},
    };
    for (const auto& c : cases) {
        int major = -7;
        int minor = -7;
        LCFBundle::ParseVersion(c.text.c_str(), major, minor);
        EXPECT_EQ(std::pair(major, minor), std::pair(c.major, c.minor)) << c.text;
    }
}

TEST(LCFBundle, OnlyAVersionsTextSetsTheNumbers) {
    const TempFolder temp;
    const auto versionOf = [&temp](const std::string& value) {
        temp.Write("A.app/Contents/Info.plist", "<plist><dict><key>CFBundleVersion</key>" + value + "</dict></plist>");
        LCFString path;
        path.SetString(temp.Join("A.app").c_str());
        const LCFURL url(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path.Get(), kCFURLPOSIXPathStyle, true));
        const LCFBundle bundle(CFBundleCreate(kCFAllocatorDefault, url.Get()));
        int major = -7;
        int minor = -7;
        const bool found = bundle.GetVersionNumber(major, minor);
        return (found ? "" : "none ") + std::to_string(major) + " " + std::to_string(minor);
    };
    EXPECT_EQ(versionOf("<string>2.14</string>"), "2 14");
    EXPECT_EQ(versionOf("<string>x</string>"), "0 0");
    EXPECT_EQ(versionOf("<string/>"), "none -7 -7");
    EXPECT_EQ(versionOf("<real>2.14</real>"), "none -7 -7");
    int number = -7;
    EXPECT_FALSE(LCFBundle().GetVersionNumber(number, number));
}

TEST(LToFSSpec, PathsBecomeRecordsAndPathsAgain) {
    const TempFolder temp;
    temp.Write("folder/file", "");
    ASSERT_EQ(::symlink("folder", temp.Join("link").c_str()), 0);
    const std::string name63(63, 'n');
    const struct {
        std::string path;
        long error;
        std::string again;
    } cases[] = {
        {temp.Join("folder/file"), 0, temp.Join("folder/file")},
        {temp.Join("link/new"), 0, temp.Join("folder/new")},  // not there yet
        {temp.Join("folder/"), 0, temp.Join("folder")},
        {temp.Join(name63), 0, temp.Join(name63)},
        {temp.Join(name63 + "n"), -43, ""},
        {temp.Join("missing/new"), -43, ""},
        {temp.Join("folder/file/new"), -43, ""},
        {temp.Join("new\xFF"), -108, ""},
        {"/", 0, "/"},
        {"", -108, ""},
    };
    for (const auto& c : cases) {
        FSSpec spec;
        EXPECT_EQ(LToFSSpec::CStringToFSSpec(c.path.c_str(), &spec), c.error) << c.path;
        char path[4096];
        LToFSSpec(c.path.c_str()).GetString(path, sizeof path);
        EXPECT_EQ(path, c.again) << c.path;
    }
    FSSpec spec;
    EXPECT_EQ(LToFSSpec::CStringToFSSpec(nullptr, &spec), -108);
    char cut[4];
    LToFSSpec(temp.Join("folder").c_str()).GetString(cut, sizeof cut);
    EXPECT_EQ(cut, temp.Path().substr(0, 3));
}

}  // namespace
