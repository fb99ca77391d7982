#include "CFObject.h"
#include "MainBundle.h"

#include "support/TempFolder.h"

#include <Carbon/Carbon.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <unistd.h>

namespace {

using platform::CFHolder;
using String = CFHolder<CFString>;
using Url = CFHolder<CFURL>;

String Make(std::string_view bytes, CFStringEncoding encoding, bool isExternal = false) {
    return String(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
                                          static_cast<CFIndex>(bytes.size()), encoding, isExternal));
}

std::u16string Units(const String& string) {
    std::vector<UniChar> units(static_cast<size_t>(CFStringGetLength(string.get())));
    CFStringGetCharacters(string.get(), CFRangeMake(0, CFStringGetLength(string.get())), units.data());
    return {units.begin(), units.end()};
}

TEST(CFString, Utf8IsReadStrictly) {
    const struct {
        const char* bytes;
        const char16_t* units;  // null: refused
    } cases[] = {
        {"", u""},
        {"aé€", u"aé€"},
        {"\xF0\x9F\x98\x80", u"\xD83D\xDE00"},
        {"\xF4\x8F\xBF\xBF", u"\xDBFF\xDFFF"},
        {"\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF", u"\x80\x7FF\x800\xFFFF"},
        {"\xC0\x80", nullptr},          // overlong
        {"\xE0\x9F\xBF", nullptr},      // overlong
        {"\xED\xA0\x80", nullptr},      // surrogate
        {"\xF4\x90\x80\x80", nullptr},  // above U+10FFFF
        {"a\xE2\x82", nullptr},         // cut
        {"\x80", nullptr},
        {"\xFF", nullptr},
    };
    for (const auto& c : cases) {
        const String string = Make(c.bytes, kCFStringEncodingUTF8);
        EXPECT_EQ(string != nullptr, c.units != nullptr) << c.bytes;
        if (!string || !c.units) continue;
        EXPECT_EQ(Units(string), c.units);
        EXPECT_EQ(platform::Utf8FromCFString(string.get()), c.bytes);
    }
}

TEST(CFString, EveryByteOfTheLatinEncodingsGoesThereAndBack) {
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
    for (const CFStringEncoding encoding : {kCFStringEncodingWindowsLatin1, kCFStringEncodingISOLatin1}) {
        const String string = Make(bytes, encoding);
        char out[256];
        ASSERT_TRUE(CFStringGetCString(string.get(), out, sizeof out, encoding));
        EXPECT_EQ(out, bytes);
    }
    EXPECT_EQ(Units(Make("\x80\x81\x8D\x8F\x90\x9D\x9F\xE9", kCFStringEncodingWindowsLatin1)),
              u"\x20AC\x81\x8D\x8F\x90\x9D\x178\xE9");
    EXPECT_EQ(Units(Make("\x80\x9F", kCFStringEncodingISOLatin1)), u"\x80\x9F");
    char out[8] = "x";
    EXPECT_FALSE(
        CFStringGetCString(Make("€", kCFStringEncodingUTF8).get(), out, sizeof out, kCFStringEncodingISOLatin1));
    EXPECT_STREQ(out, "");
}

TEST(CFString, Utf16KeepsEveryUnit) {
    EXPECT_EQ(Units(Make({"\x41\x00\x00\xD8", 4}, kCFStringEncodingUnicode)), u"A\xD800");
    EXPECT_EQ(Units(Make({"\xFE\xFF\x00\x41", 4}, kCFStringEncodingUnicode, true)), u"A");
    EXPECT_EQ(Units(Make({"\xFF\xFE\x41\x00", 4}, kCFStringEncodingUnicode, true)), u"A");
    EXPECT_EQ(Units(Make({"\xFF\xFE\x41\x00", 4}, kCFStringEncodingUnicode)), u"\xFEFF"
                                                                              u"A");
    EXPECT_FALSE(Make("abc", kCFStringEncodingUnicode));
    EXPECT_FALSE(Make("abc", 0x0999));
    const UniChar surrogates[] = {0xDE00, 0xD83D, 'x', 0xD83D, 0xDE00};
    const String lone(CFStringCreateWithCharacters(kCFAllocatorDefault, surrogates, 5));
    EXPECT_EQ(platform::Utf8FromCFString(lone.get()), "\xED\xB8\x80\xED\xA0\xBDx\xF0\x9F\x98\x80");
}

TEST(CFString, TextsComeOutWholeOrNotAtAll) {
    const String string = Make("aé", kCFStringEncodingUTF8);
    char text[8];
    EXPECT_TRUE(CFStringGetCString(string.get(), text, 4, kCFStringEncodingUTF8));
    EXPECT_STREQ(text, "aé");
    EXPECT_FALSE(CFStringGetCString(string.get(), text, 3, kCFStringEncodingUTF8));
    EXPECT_STREQ(text, "");
    EXPECT_FALSE(CFStringGetCString(string.get(), text, 0, kCFStringEncodingUTF8));
    unsigned char pascal[300];
    EXPECT_TRUE(CFStringGetPascalString(string.get(), pascal, 4, kCFStringEncodingUTF8));
    EXPECT_EQ(std::string(pascal, pascal + 4), "\x03"
                                               "aé");
    EXPECT_FALSE(CFStringGetPascalString(string.get(), pascal, 3, kCFStringEncodingUTF8));
    for (const size_t length : {255u, 256u}) {
        EXPECT_EQ(CFStringGetPascalString(Make(std::string(length, 'x'), kCFStringEncodingUTF8).get(), pascal, 300,
                                          kCFStringEncodingUTF8),
                  length == 255);
    }
}

TEST(CFString, ObjectsLiveAsLongAsTheirReferences) {
    const CFStringRef string = platform::CFStringFromUtf8("text");
    EXPECT_EQ(CFRetain(string), string);
    CFRelease(string);
    EXPECT_EQ(platform::Utf8FromCFString(string), "text");
    CFRelease(string);
    CFRelease(nullptr);
    EXPECT_EQ(CFRetain(nullptr), nullptr);
}

Url UrlOf(std::string_view path, bool isDirectory = false) {
    const String text(platform::CFStringFromUtf8(path));
    return Url(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text.get(), kCFURLPOSIXPathStyle, isDirectory));
}

std::string PathOf(const Url& url) {
    return platform::Utf8FromCFString(String(CFURLCopyFileSystemPath(url.get(), kCFURLPOSIXPathStyle)).get());
}

TEST(CFURL, PathsComeApart) {
    const struct {
        const char *path, *folder, *last;
    } cases[] = {{"/a/b", "/a", "b"}, {"/a/b/", "/a", "b"}, {"/a", "/", "a"},
                 {"/", "/", "/"},     {"a", ".", "a"},      {"a/b", "a", "b"}};
    for (const auto& c : cases) {
        const Url url = UrlOf(c.path);
        const Url folder(CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, url.get()));
        EXPECT_EQ(PathOf(folder), c.folder) << c.path;
        EXPECT_EQ(platform::Utf8FromCFString(String(CFURLCopyLastPathComponent(url.get())).get()), c.last) << c.path;
    }
    EXPECT_FALSE(UrlOf(""));
}

TEST(CFURL, ARelativePathMeansTheWorkingFolder) {
    const Url missing = UrlOf("no such file");
    FSRef ref{"before"};
    EXPECT_FALSE(CFURLGetFSRef(missing.get(), &ref));
    EXPECT_EQ(ref.path, "before");
    EXPECT_TRUE(CFURLGetFSRef(UrlOf(".").get(), &ref));
    char folder[4096];
    ASSERT_TRUE(::getcwd(folder, sizeof folder));
    EXPECT_EQ(PathOf(Url(CFURLCopyAbsoluteURL(missing.get()))), std::string(folder) + "/no such file");
    EXPECT_EQ(PathOf(Url(CFURLCopyAbsoluteURL(UrlOf("/a/").get()))), "/a");
}

TEST(CFBundle, ABundleIsAFolderWithTexts) {
    const TempFolder temp;
    temp.Write("A.app/Contents/Info.plist", "<plist><dict><key>CFBundleVersion</key><string>2.14</string>"
                                            "<key>Broken</key><string>\xFF</string></dict></plist>");
    const CFHolder<CFBundle> bundle(CFBundleCreate(kCFAllocatorDefault, UrlOf(temp.Join("A.app"), true).get()));
    ASSERT_TRUE(bundle);
    const auto valueOf = [&bundle](CFStringRef key) {
        return static_cast<CFStringRef>(CFBundleGetValueForInfoDictionaryKey(bundle.get(), key));
    };
    EXPECT_EQ(platform::Utf8FromCFString(valueOf(kCFBundleVersionKey)), "2.14");
    EXPECT_EQ(valueOf(String(platform::CFStringFromUtf8("Broken")).get()), nullptr);
    EXPECT_EQ(valueOf(String(platform::CFStringFromUtf8("Missing")).get()), nullptr);
    EXPECT_EQ(PathOf(Url(CFBundleCopyResourcesDirectoryURL(bundle.get()))), temp.Join("A.app/Contents/Resources"));

    const CFHolder<CFBundle> bare(CFBundleCreate(kCFAllocatorDefault, UrlOf(temp.Path()).get()));
    ASSERT_TRUE(bare);
    EXPECT_EQ(CFBundleGetValueForInfoDictionaryKey(bare.get(), kCFBundleVersionKey), nullptr);
    for (const std::string& path : {temp.Join("missing"), temp.Join("A.app/Contents/Info.plist")}) {
        EXPECT_EQ(CFBundleCreate(kCFAllocatorDefault, UrlOf(path).get()), nullptr) << path;
    }
}

TEST(CFBundle, TheMainBundleIsOne) {
    const TempFolder temp;
    const CFBundleRef own = CFBundleGetMainBundle();
    EXPECT_EQ(PathOf(Url(CFBundleCopyBundleURL(own))), platform::MainBundleRoot());
    platform::SetMainBundleRoot(temp.Path());
    EXPECT_EQ(PathOf(Url(CFBundleCopyBundleURL(CFBundleGetMainBundle()))), temp.Path());
    platform::SetMainBundleRoot("");
    EXPECT_EQ(CFBundleGetMainBundle(), own);
}

}  // namespace
