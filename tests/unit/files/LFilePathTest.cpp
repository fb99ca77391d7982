#include "files/LFilePath.h"

#include "MountTable.h"
#include "files/LFile.h"
#include "support/TempFolder.h"
#include "text/LCopyBounded.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <unistd.h>

namespace {

// The text that an operation writes into a buffer of the promised size, between guards that it must leave alone.
template <class Operation>
std::string ResultOf(Operation operation) {
    char guarded[1 + LTextBufferSize + 1];
    std::memset(guarded, '#', sizeof guarded);
    operation(guarded + 1);
    EXPECT_EQ(guarded[0], '#');
    EXPECT_EQ(guarded[LTextBufferSize + 1], '#');
    return guarded + 1;
}

using OnePath = void (*)(char*, const char*);
std::string ResultOf(OnePath operation, const std::string& path) {
    const std::string result = ResultOf([&](char* dst) { operation(dst, path.c_str()); });
    if (path.size() < LTextBufferSize) {  // the same in place
        char buffer[LTextBufferSize];
        std::strcpy(buffer, path.c_str());
        operation(buffer, buffer);
        EXPECT_EQ(buffer, result) << path;
    }
    return result;
}

using ThreeTexts = void (*)(char*, const char*, const char*, const char*);
std::string ResultOf(ThreeTexts operation, const std::string& a, const std::string& b, const std::string& c) {
    return ResultOf([&](char* dst) { operation(dst, a.c_str(), b.c_str(), c.c_str()); });
}

std::string X(size_t count) {
    return std::string(count, 'x');
}

TEST(LFilePath, PartsAreJoined) {
    const struct {
        std::string folder, name, ext, path;
    } cases[] = {
        {"/a/", "b", "", "/a/b"},
        {"/a", "b", ".c", "/a/b.c"},
        {"\\a\\", "b", "", "\\a\\b"},
        {"", "b", ".c", "b.c"},
        {"/", "b", "", "/b"},
        {"/" + X(257), "b", "", "/" + X(257) + "/"},
        {"/" + X(300), "b", "", "/" + X(257) + "/"},
        {"/a", X(300), ".c", "/a/" + X(256)},
        {"", X(258), ".c", X(258) + "."},
    };
    for (const auto& c : cases) EXPECT_EQ(ResultOf(LFile::_MakeFilePath, c.folder, c.name, c.ext), c.path);
    char folder[LTextBufferSize] = "/a";
    LFile::_MakeFilePath(folder, folder, "b", nullptr);
    EXPECT_STREQ(folder, "/a/b");
}

TEST(LFilePath, PathsComeApart) {
    const struct {
        std::string path, folder, baseFolder, file, extension, name;
    } cases[] = {
        {"/file", "/", "/file", "file", "", "file"},
        {"file", "", "file", "file", "", "file"},
        {"/a/b/", "/a/b", "/a", "", "", ""},
        {"/a.b/c", "/a.b", "/a.b", "c", "", "c"},
        {"x.tar.gz", "", "x.tar.gz", "x.tar.gz", ".gz", "x.tar"},
        {"/tmp/.profile", "/tmp", "/tmp", ".profile", ".profile", ".profile"},
        {"/tmp/.a.b", "/tmp", "/tmp", ".a.b", ".b", ".a"},
        {"C:\\dir\\x.", "C:\\dir", "C:", "x.", ".", "x"},
        {"\\x", "", "\\x", "x", "", "x"},
        {"//x", "/", "//x", "x", "", "x"},
        {"", "", "", "", "", ""},
        {"/" + X(258) + "/y.z", "/" + X(258), "/" + X(258), "y.z", ".z", "y"},
        {"/" + X(259) + "/y.z", "/", "/" + X(258), X(259), ".z", "y"},  // what is longer than a buffer hides the rest
        {"/y/" + X(300), "/y", "/y", X(259), "", X(259)},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ResultOf(LFile::_GetFolderFromPath, c.path), c.folder) << c.path;
        EXPECT_EQ(ResultOf(LFile::_GetBaseFolderFromPath, c.path), c.baseFolder) << c.path;
        EXPECT_EQ(ResultOf(LFile::_GetFileFromPath, c.path), c.file) << c.path;
        EXPECT_EQ(ResultOf(LFile::_GetFileExtensionFromPath, c.path), c.extension) << c.path;
        EXPECT_EQ(ResultOf(LFile::_GetFileNameFromPath, c.path), c.name) << c.path;
    }
    EXPECT_EQ(ResultOf(LFile::_GetBaseFolderFromPath, "/Volumes/Disk/a"), "/Volumes");
}

TEST(LFilePath, ExtensionsAreReplaced) {
    const struct {
        std::string path, ext, changed;
    } cases[] = {
        {"/tmp/doc.txt", ".lck", "/tmp/doc.lck"},
        {"/tmp.d/doc", ".lck", "/tmp.d/doc.lck"},
        {".profile", ".lck", ".profile.lck"},
        {"/tmp/.profile", ".lck", "/tmp/.lck"},
        {"a.b.c", "", "a.b"},
        {"", ".lck", ".lck"},
        {X(258), ".lck", X(258) + "."},
        {X(259), ".lck", X(259)},
        {X(300) + ".txt", ".lck", X(259)},
        {X(250) + ".txt", ".longextension", X(250) + ".longexte"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ResultOf([&](char* dst) { LFile::_ApplyNewFileExtension(dst, c.path.c_str(), c.ext.c_str()); }),
                  c.changed);
    }
}

TEST(LFilePath, TheDriveIsTheMountPointOrTheTextsBeginning) {
    platform::SetMountTable("1 1 0:0 / / x\n2 1 0:0 / /dev x\n");
    EXPECT_EQ(ResultOf(LFile::GetHumanReadableDriveFromPath, "/dev/null"), "/dev");
    platform::SetMountTable(std::nullopt);
    const struct {
        std::string path, drive;
    } cases[] = {
        {"/missing/x", "/"},     {"C:\\missing", "C:\\"}, {"missing9/x", "missing9:\\"}, {"-missing", ""}, {"", ""},
        {X(300), X(257) + ":\\"}};
    for (const auto& c : cases) EXPECT_EQ(ResultOf(LFile::GetHumanReadableDriveFromPath, c.path), c.drive) << c.path;
}

TEST(LFilePath, APathAsSeenFromAFolder) {
    std::string deep;
    for (int i = 0; i < 100; ++i) deep += "/y";
    const struct {
        std::string folder, path, relative;
        bool done = true;
    } cases[] = {
        {"/a/b", "/a/b/c", "c"},
        {"/a/b/", "/a/b/c", "c"},
        {"/a/b", "/a/c/d", "../c/d"},
        {"/a/b/c", "/a/x", "../../x"},
        {"/a/b/c/", "/a/x", "../../x"},
        {"/a/b", "/a/bc", "../bc"},
        {"/a/b", "/a/b", "../b"},
        {"C:\\dir", "D:\\x", "D:\\x"},
        {"C:\\dir", "C:\\x", "..\\x"},
        {"a", "b", "b"},
        {"a", "a\\b", "b"},
        {"", "x", "x"},
        {"", "/x", "x"},
        {"/x", "", ""},
        {"/a", "/" + X(257), "../" + X(256)},  // 260 bytes, cut to 259
        {"/a", "/" + X(258), "", false},       // 261
        {"/a", "/" + X(256), "../" + X(256)},
        {deep, "/z", "", false},
    };
    for (const auto& c : cases) {
        bool done = false;
        const auto operation = [&](char* dst) {
            done = LFile::GetRelativePathFromAbsolutePath(dst, c.folder.c_str(), c.path.c_str());
        };
        EXPECT_EQ(ResultOf(operation), c.relative) << c.folder << " " << c.path;
        EXPECT_EQ(done, c.done) << c.folder << " " << c.path;
    }
}

TEST(LFilePath, RelativePathsAreResolved) {
    const struct {
        std::string folder, relative, path;
    } cases[] = {
        {"/a/b/", "../c", "/a/c"},   {"/a/b", "../c", "/a/c"},   {"/abc/def", "../c", "/abc/c"},
        {"/a/b//", "../c", "/a/c"},  {"/a/b/", "./c", "/a/b/c"}, {"/a/b/", "././../c", "/a/c"},
        {"/a/b/", ".././c", "/a/c"}, {"/a/b", "c", "/a/b/c"},    {"/a/b", ".c", "/a/b/.c"},
        {"/a/b", "..", "/a/b/.."},   {"/a/b", "..\\c", "/a/c"},  {"/a/b", "/x", "/x"},
        {"/a/b", "\\x", "\\x"},      {"/a/b", "C:x", "C:x"},     {"/a/b", "c/d:e", "/a/b/c/d:e"},
        {"/a", "../c", "/a/c"},  // two bytes stay
        {"/aa", "../c", "/c"},   // never below the root
        {"/", "../c", "/../c"},  // shorter ones keep the step
        {"abc", "../../c", "../c"},  {"ab/cd", "../c", "ab/c"},  {"/aa/b", "../../c", "/c"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ResultOf(LFile::MakeAbsoluteFilePath, c.folder, c.relative, ".e"), c.path + ".e")
            << c.folder << " " << c.relative;
    }
}

TEST(LFilePath, TargetsAsSeenFromABase) {
    const struct {
        std::string base, target, relative;
    } cases[] = {
        {"/a/b", "/a/b/c/d.txt", "c/d.txt"},
        {"/a/b/", "/a/b/c", "c"},
        {"/a/b", "/a/e", "../e"},
        {"/a/bc", "/a/bd/x", "../bd/x"},
        {"/a/b", "/a/b", "../b"},
        {"/a/b/c", "/", "../../../"},
        {"a", "/b", "../b"},
        {"", "/a/b", "/a/b"},
        {"/a", "/" + X(300), "../" + X(256)},
        {X(300), "y", "y"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ResultOf([&](char* dst) {
                      EXPECT_TRUE(LFile::MakeRelativeFilePath(dst, c.base.c_str(), c.target.c_str()));
                  }),
                  c.relative)
            << c.base << " " << c.target;
    }
}

TEST(LFilePath, UniquePathsAreNumbered) {
    const TempFolder temp;
    const auto unique = [&](const std::string& name) {
        return ResultOf(LFile::MakeUniqueOrderedFilePath, temp.Path(), name, ".mov");
    };
    EXPECT_EQ(unique("rec"), temp.Join("rec.mov"));
    temp.Write("rec.mov", "");
    EXPECT_EQ(unique("rec"), temp.Join("rec_0.mov"));
    temp.Write("rec_0.mov", "");
    EXPECT_EQ(unique("rec"), temp.Join("rec_1.mov"));
    // The number falls behind the cut: the same path again and again.
    std::string folder = "deep";
    while (temp.Join(folder).size() < 200) folder += "/deep";
    const std::string name = X(258 - temp.Join(folder).size());
    temp.Write(folder + "/" + name, "");
    EXPECT_EQ(ResultOf(LFile::MakeUniqueOrderedFilePath, temp.Join(folder), name, ".mov"),
              temp.Join(folder + "/" + name));
}

TEST(LFilePath, AnEscapedNameInTheWorkingFolderCounts) {
    const TempFolder temp;
    char before[LTextBufferSize];
    ASSERT_TRUE(LFile::GetCurrentDirectory(before));
    ASSERT_EQ(LFile::SetCurrentDirectory(temp.Path().c_str()), 0);
    EXPECT_FALSE(LFileExists("/no such a b"));
    temp.Write("%2Fno%20such%20a%20b", "");
    EXPECT_TRUE(LFileExists("/no such a b"));
    EXPECT_TRUE(LFileExists("."));
    EXPECT_FALSE(LFileExists(""));
    EXPECT_FALSE(LFileExists(nullptr));
    EXPECT_EQ(LFile::SetCurrentDirectory(before), 0);
    EXPECT_EQ(LFile::SetCurrentDirectory("/no such folder"), -1);
}

TEST(LFilePath, NamesAreCleared) {
    for (const char* name : {"", "a:b", "a*", "?", "\"", "<", ">", "|", "\\", "/", "\x01", "\x1F"}) {
        EXPECT_FALSE(LFile::IsFileValid(name)) << name;
    }
    for (const char* name : {"a b.txt", "\x7F", "\xC3\xA9", "."}) EXPECT_TRUE(LFile::IsFileValid(name)) << name;

    const struct {
        std::string text, name, path;
        bool nameDone, pathDone;
    } cases[] = {
        {"a:b/c\\d\x1F", "abcd", "ab/c\\d", true, true},
        {"   ", "   ", "   ", true, false},
        {"//", "", "//", false, true},
        {"*?\"<>|", "", "", false, false},
        {X(259) + ":y", X(259), X(259), true, true},
        {":" + X(300), X(259), X(259), true, true},
    };
    for (const auto& c : cases) {
        bool nameDone = false;
        bool pathDone = false;
        EXPECT_EQ(ResultOf([&](char* dst) { nameDone = LFile::PreprocessName(c.text.c_str(), dst); }), c.name);
        EXPECT_EQ(ResultOf([&](char* dst) { pathDone = LFile::PreprocessPath(c.text.c_str(), dst); }), c.path);
        EXPECT_EQ(nameDone, c.nameDone) << c.text;
        EXPECT_EQ(pathDone, c.pathDone) << c.text;
    }
}

TEST(LFilePath, QuotesAreEscapedWhole) {
    const struct {
        std::string text, escaped;
    } cases[] = {
        {"a\"b`c'$\\", "a\\\"b\\`c'$\\"},
        {X(257) + "\"", X(257) + "\\\""},
        {X(258) + "\"y", X(258)},
        {X(259) + "\"", X(259)},
        {std::string(300, '`'),
         [] {
             std::string all;
             for (int i = 0; i < 129; ++i) all += "\\`";
             return all;
         }()},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ResultOf([&](char* dst) { LFile::EscapeFilePath(c.text.c_str(), dst); }), c.escaped);
    }
}

TEST(LFilePath, EndingsAndLists) {
    EXPECT_EQ(tstrcmpend("file.txt", ".txt"), 0);
    EXPECT_EQ(tstrcmpend("txt", ".txt"), -1);
    EXPECT_NE(tstrcmpend("file.TXT", ".txt"), 0);
    EXPECT_LT(tstrcmpend("a1", "2"), 0);
    EXPECT_GT(tstrcmpend("a3", "2"), 0);
    EXPECT_EQ(tstrcmpend("a", ""), 0);
    const char* const list[] = {".mov", ".MP4", nullptr};
    EXPECT_TRUE(LIsFileExtensionInList(list, ".mp4"));
    EXPECT_TRUE(LIsFileExtensionInList(list, ".MOV"));
    EXPECT_FALSE(LIsFileExtensionInList(list, ".mo"));
    EXPECT_FALSE(LIsFileExtensionInList(list, ""));
    EXPECT_FALSE(LIsFileExtensionInList(nullptr, ".mov"));
}

}  // namespace
