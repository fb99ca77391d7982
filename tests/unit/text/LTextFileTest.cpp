#include "text/LTextFile.h"
#include "files/LFile.h"
#include "support/FolderTree.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>

namespace {

using std::string_literals::operator""s;
using Text = LStringLongTemplate<char>;

// What a load gives, terminator checked; "-" where it fails.
std::string Loaded(bool (*load)(const char*, Text&), const std::string& path) {
    Text text;
    text = "before";
    if (!load(path.c_str(), text)) return "-";
    EXPECT_EQ(text.Get()[text.Length()], '\0');
    return {text.Get(), text.Length()};
}

}  // namespace

TEST(LTextFile, LoadsWhatTheMarkSays) {
    const TempFolder folder;
    const struct {
        std::string bytes, plain, utf16, unicode, any;
    } rows[] = {
        {"", "", "", "", ""},
        {"a", "a", "", "", "a"},
        {"a\0"s, "a\0"s, "a", "a", "a\0"s},
        {"\xEF\xBB\xBF"
         "a",
         "\xEF\xBB\xBF"
         "a",
         "\xEB\xAF\xAF\xE6\x86\xBF", "\xEB\xAF\xAF\xE6\x86\xBF", "a"},
        {"\xEF\xBB\xBF", "\xEF\xBB\xBF", "\xEB\xAF\xAF", "\xEB\xAF\xAF", ""},
        {"\xFF\xFE"
         "a\0"s,
         "\xFF\xFE"
         "a\0"s,
         "\xEF\xBB\xBF"
         "a",
         "a", "a"},
        {"\xFE\xFF\0a"s, "\xFE\xFF\0a"s, "\xEF\xBF\xBE\xE6\x84\x80", "a", "a"},
        {"\xFF\xFE", "\xFF\xFE", "\xEF\xBB\xBF", "", ""},
        {"\xFF\xFE"
         "a\0b"s,
         "\xFF\xFE"
         "a\0b"s,
         "\xEF\xBB\xBF"
         "a",
         "a", "a"},  // an odd byte
    };
    for (const auto& row : rows) {
        const std::string path = folder.Write("file", row.bytes);
        EXPECT_EQ(Loaded(LLoadText, path), row.plain);
        EXPECT_EQ(Loaded(LLoadTextAsUTF16, path), row.utf16);
        EXPECT_EQ(Loaded(LLoadTextUnicode, path), row.unicode);
        EXPECT_EQ(Loaded(LLoadTextAutoChar, path), row.any);
    }
    ASSERT_EQ(::mkfifo(folder.Join("pipe").c_str(), 0600), 0);
    folder.Write("huge", "");
    ASSERT_EQ(::truncate(folder.Join("huge").c_str(), 1ll << 32), 0);
    for (const auto load : {LLoadText, LLoadTextAsUTF16, LLoadTextUnicode, LLoadTextAutoChar}) {
        EXPECT_EQ(Loaded(load, folder.Join("none")), "-");
        for (const auto& path : {folder.Path(), folder.Join("pipe"), folder.Join("huge")})
            EXPECT_EQ(Loaded(load, path), "");
        Text text;
        EXPECT_FALSE(load(nullptr, text));
    }
}

TEST(LTextFile, SavesAndMarks) {
    const TempFolder folder;
    const std::string path = folder.Join("file");
    Text text, none;
    text = "\xC3\xA9";
    const int marked = LSaveAppendText(path.c_str(), "a");  // makes it
    EXPECT_EQ(LSaveAppendText(path.c_str(), text), marked);
    EXPECT_EQ(Content(path), "a\xC3\xA9");
    char value[100];
    const ssize_t size = ::getxattr(path.c_str(), "user.com.apple.TextEncoding", value, sizeof value);
    EXPECT_EQ(marked, size == 15 && std::string(value, 15) == "utf-8;134217984" ? 0 : -1);
    EXPECT_EQ(LSaveText(path.c_str(), text), marked);
    EXPECT_EQ(Content(path), "\xC3\xA9");
    EXPECT_EQ(LSaveText(path.c_str(), none), marked);
    EXPECT_EQ(Content(path), "");
    EXPECT_EQ(LSaveText(folder.Join("none/x").c_str(), "a"), -1);
    EXPECT_EQ(LSaveText(nullptr, static_cast<const char*>(nullptr)), -1);
    LSaveTextAsUnicodeBOM(path.c_str(), text);
    EXPECT_EQ(Content(path), "\xFF\xFE\xE9\0"s);
    LSaveTextAsUnicodeBOM(path.c_str(), none);
    EXPECT_EQ(Content(path), "\xFF\xFE");
    LSaveTextAsUnicodeBOM(folder.Join("none/x").c_str(), text);
    // Somebody's lock delays, and no more.
    const int holder = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(holder, LOCK_EX), 0);
    EXPECT_EQ(LSaveText(path.c_str(), "b"), marked);
    EXPECT_EQ(Loaded(LLoadText, path), "b");
    ::close(holder);
}
