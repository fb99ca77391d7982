#include "VirtualClock.h"
#include "files/LFile.h"
#include "files/LFileIdentity.h"
#include "files/LFolderIterator.h"
#include "support/FolderTree.h"
#include "support/TempFolder.h"
#include "system/LCommandLineProcess.h"

#include <bsd/fileflags.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

std::vector<std::string> Walk(LFile::FolderIterator& walk, bool isOpen) {
    std::vector<std::string> names;
    for (bool more = isOpen; more; more = walk.Next()) names.emplace_back(walk.CurrentName());
    EXPECT_FALSE(walk.IsOpen());
    EXPECT_FALSE(walk.Next());
    return names;
}

mode_t ModeOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

[[noreturn]] void LookFromAFolderThatCantBeSearched(const char* folder) {
    struct stat root {};
    constexpr uid_t kNobody = 65534;
    ::alarm(60);  // ends a look without end
    if (::stat("/", &root) != 0 || ::chdir(folder) != 0 || ::chmod(folder, 0) != 0) ::_exit(1);
    if (::geteuid() == 0 && ::setuid(kNobody) != 0) ::_exit(2);
    ::_exit(LLiesInFolder(root, "copy") ? 3 : 0);
}

}  // namespace

TEST(LFolderIterator, VisibleNamesThatMatch) {
    const TempFolder folder;
    for (const char* name : {"a.TXT", ".hidden.txt", "__MACOSX.txt", "b.txt~", "*b"}) folder.Write(name, "");
    folder.MakeFolder("c.txt");
    LFile::FolderIterator walk;
    LFile::FolderIteratorAllFiles all;
    const char* const path = folder.Path().c_str();
    EXPECT_THAT(Walk(walk, walk.Open(path, "*.txt")), UnorderedElementsAre("a.TXT", "c.txt"));
    EXPECT_THAT(Walk(walk, walk.Open(path, "?.Txt")), UnorderedElementsAre("a.TXT", "c.txt"));
    EXPECT_THAT(Walk(walk, walk.Open(path)), UnorderedElementsAre("a.TXT", "b.txt~", "*b", "c.txt"));
    EXPECT_THAT(Walk(all, all.Open(path, "")),
                UnorderedElementsAre(".", "..", "a.TXT", ".hidden.txt", "__MACOSX.txt", "b.txt~", "*b", "c.txt"));
    EXPECT_THAT(Walk(walk, walk.Open(folder.Join("a.TXT").c_str())), ElementsAre("a.TXT"));
    EXPECT_THAT(Walk(walk, walk.Open(folder.Join("c.txt").c_str())), ElementsAre());
    for (const char* none : {"/no/such/folder", "", "a.TXT", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(walk.Open(none, "*")) << (none ? none : "null");
    ASSERT_TRUE(walk.Open(path, "*"));
    EXPECT_STREQ(walk.Folder(), path);
    EXPECT_TRUE(walk.Open(path, "b*"));  // starts again
}

TEST(LWildcard, StarsAndQuestionMarks) {
    const struct {
        const char *pattern, *name;
        bool matches;
    } rows[] = {
        {"a*b?d", "axxbcd", true}, {"a*b?d", "abxd", true}, {"a*b?d", "abd", false},
        {"*", "", true},           {"", "", true},          {"", "a", false},
        {"?", "", false},          {"a", "", false},        {"**", "", true},
        {"a**", "a", true},        {"*b", "*ab", true},     {"*b", "ab*", false},
        {"*a*a", "aba", true},     {"*.*", "a", false},     {"a*b*c", "abbbcc", true},
        {"a*b*c", "acb", false},   {"?*?", "a", false},     {"?*?", "ab", true},
        {"*ab", "aab", true},
    };
    for (const auto& row : rows)
        EXPECT_EQ(LFile::IsMatch(row.pattern, row.name), row.matches) << row.pattern << row.name;
    EXPECT_TRUE(LFile::IsMatch(L"\u00E4*", L"\u00E4b"));
    // Where every star tried all places for itself this would take longer than there is time.
    std::string pattern, name(200, 'a');
    for (int i = 0; i < 100; i++) pattern += "*a";
    EXPECT_FALSE(LFile::IsMatch((pattern + "b").c_str(), name.c_str()));
    EXPECT_TRUE(LFile::IsMatch((pattern + "*").c_str(), name.c_str()));
}

TEST(LFolderTrees, AreMadeWithAllThatIsMissing) {
    const TempFolder folder;
    for (const char* path : {"x/y/z", "slash/es//", "a//b"}) {
        EXPECT_TRUE(LFile::CreateFolderTree(folder.Join(path).c_str())) << path;
        EXPECT_FALSE(LFile::CreateFolderTree(folder.Join(path).c_str())) << path;
        EXPECT_TRUE(fs::is_directory(folder.Join(path)));
    }
    for (const std::string& name : kNames) {
        EXPECT_TRUE(LFile::CreateFolderTree(folder.Join("of all names/" + name).c_str())) << name;
        EXPECT_TRUE(fs::remove(folder.Join("of all names/" + name)));
        EXPECT_TRUE(fs::is_empty(folder.Join("of all names"))) << name;  // it was the only one
    }
    folder.Write("file", "kept");
    EXPECT_FALSE(LFile::CreateFolderTree(folder.Join("file/x").c_str()));
    EXPECT_FALSE(LFile::CreateFolderTree(folder.Join("file").c_str()));
    EXPECT_FALSE(LFile::CreateFolderTree(""));
    EXPECT_FALSE(LFile::CreateFolderTree(nullptr));
    EXPECT_FALSE(LFile::CreateFolderTree(folder.Join("long/" + std::string(260, 'x')).c_str()));
    EXPECT_FALSE(fs::exists(folder.Join("long")));
}

// What is outside stays, whatever stands in the way.
TEST(LFolderTrees, NothingIsDeletedThatWasNotNamed) {
    const struct {
        const char* what;
        bool (*remove)(const char*);
        bool deepToo;
    } rows[] = {{"tree", LFile::DeleteFolderTree, true},
                {"always", LFile::DeleteFolderTreeAlways, true},
                {"files", LFile::DeleteFolderAndFiles, false}};
    for (const auto& row : rows) {
        const TempFolder folder;
        folder.Write("outside/precious", "1");
        folder.Write("file", "2");
        const std::string tree = folder.MakeFolder("tree");
        for (const std::string& name : kNames) folder.Write("tree/" + name, "");
        fs::create_symlink(folder.Join("outside"), tree + "/link to folder");
        fs::create_symlink(folder.Join("outside/precious"), tree + "/link to file");
        fs::create_symlink(tree, tree + "/loop");
        fs::create_symlink("nowhere", tree + "/dangling");
        ASSERT_EQ(::mkfifo((tree + "/pipe").c_str(), 0600), 0);
        fs::create_symlink(folder.Join("outside"), folder.Join("link"));
        EXPECT_FALSE(row.remove(folder.Join("link").c_str())) << row.what;
        EXPECT_FALSE(row.remove(folder.Join("link/").c_str())) << row.what;
        EXPECT_FALSE(row.remove(folder.Join("file").c_str())) << row.what;  // and not what lies beside it
        EXPECT_FALSE(row.remove(folder.Join("none").c_str())) << row.what;
        EXPECT_FALSE(row.remove("")) << row.what;
        EXPECT_FALSE(row.remove(nullptr)) << row.what;
        EXPECT_EQ(Tree(folder.Path()).size(), kNames.size() + 10) << row.what;
        EXPECT_TRUE(row.remove((tree + "/").c_str())) << row.what;
        folder.Write("deep/a/b", "3");
        EXPECT_EQ(row.remove(folder.Join("deep").c_str()), row.deepToo) << row.what;
        auto left =
            std::vector<std::string>{"file=2", "link -> " + folder.Join("outside"), "outside/", "outside/precious=1"};
        if (!row.deepToo) left.insert(left.begin(), {"deep/", "deep/a/", "deep/a/b=3"});
        EXPECT_EQ(Tree(folder.Path()), left) << row.what;
    }
}

// A path that was cut to the buffer's size may be somebody else's.
TEST(LFolderTrees, PathsThatAreTooLongAreLeftAlone) {
    const TempFolder folder;
    const std::string longest(255, 'x'), tree = folder.MakeFolder("tree");
    const std::string cut = longest.substr(0, 259 - tree.size() - 1);
    folder.Write("tree/" + longest, "1");
    folder.Write("tree/" + cut, "2");
    folder.Write("short", "");
    EXPECT_FALSE(LFile::DeleteFolderTree(tree.c_str()));
    EXPECT_EQ(Tree(tree), std::vector<std::string>{longest + "=1"});
    LFile::SetFolderSecurityAllAccess(tree.c_str());
    EXPECT_NE(ModeOf(tree + "/" + longest), 0777u);
    LFile::CopyFolderFiles(tree.c_str(), folder.Join("copy").c_str());
    EXPECT_TRUE(Tree(folder.Join("copy")).empty());
    EXPECT_FALSE(LFile::CopyFile((tree + "/" + longest).c_str(), folder.Join("short").c_str()));
    const std::string deep = folder.MakeFolder(longest + "/d");
    EXPECT_FALSE(LFile::DeleteFolderTree(deep.c_str()));
    EXPECT_TRUE(fs::exists(deep));
}

TEST(LFolderTrees, FlaggedFilesGoOnlyAlways) {
    const TempFolder folder;
    const std::string file = folder.Write("tree/locked", "");
    const std::string lock = "chattr +i '" + file + "' 2>/dev/null", unlock = "chattr -i '" + file + "' 2>/dev/null";
    if (!RunCommandLineProcess(lock.c_str())) GTEST_SKIP() << "files can't be flagged here";
    EXPECT_FALSE(LFile::DeleteFolderTree(folder.Join("tree").c_str()));
    EXPECT_TRUE(fs::exists(file));
    EXPECT_TRUE(LFile::DeleteFolderTreeAlways(folder.Join("tree").c_str()));
    RunCommandLineProcess(unlock.c_str());
    EXPECT_EQ(::chflags(file.c_str(), 0), -1);
}

TEST(LFolderTrees, OldFilesGoByTheTimeTheyWereMade) {
    const TempFolder folder;
    for (const char* name : {"a.log", ".hidden.log", "b.txt"}) folder.Write(name, "");
    folder.MakeFolder("folder.log");
    fs::last_write_time(folder.Join("a.log"), fs::file_time_type::clock::now() - std::chrono::hours(24 * 365));
    const auto after = [&](long hours, int days) {
        const platform::VirtualClock clock(std::time(nullptr) + hours * 3600);
        LFile::DeleteOldFiles(folder.Path().c_str(), "*.LOG", days);
        return Tree(folder.Path()).size();
    };
    EXPECT_EQ(after(1, 1), 4u);  // its content is a year old, the file isn't
    EXPECT_EQ(after(1'000, 0), 4u);
    EXPECT_EQ(after(1'000, -1), 4u);
    EXPECT_EQ(after(49, 2), 3u);
    EXPECT_FALSE(fs::exists(folder.Join("a.log")));
}

TEST(LFolderTrees, AccessForEveryoneStopsAtLinks) {
    const TempFolder folder;
    const std::string outside = folder.Write("outside", ""), file = folder.Write("tree/sub/file", "");
    ::chmod(outside.c_str(), 0600);
    fs::create_symlink(outside, folder.Join("tree/link"));
    LFile::SetFolderSecurityAllAccess(folder.Join("tree").c_str());
    for (const auto& path : {folder.Join("tree"), folder.Join("tree/sub"), file}) EXPECT_EQ(ModeOf(path), 0777u);
    LFile::SetFolderSecurityAllAccess(folder.Join("tree/link").c_str());
    EXPECT_EQ(ModeOf(outside), 0600u);
}

TEST(LFileCopy, CopiesOrLeavesWhatWasThere) {
    const TempFolder folder;
    const std::string src = folder.Write("src", std::string(300'000, 's')), dst = folder.Write("dst", "old");
    ::chmod(src.c_str(), 0751);
    EXPECT_TRUE(LFile::CopyFile(src.c_str(), dst.c_str()));
    EXPECT_EQ(Content(dst), Content(src));
    EXPECT_EQ(ModeOf(dst), 0751u);
    fs::create_hard_link(src, folder.Join("hard"));
    fs::create_symlink(folder.Path(), folder.Join("self"));
    for (const char* same : {"src", "self/src", "./src"})
        EXPECT_FALSE(LFile::CopyFile(src.c_str(), folder.Join(same).c_str()));
    EXPECT_EQ(Content(src).size(), 300'000u);
    EXPECT_TRUE(LFile::CopyFile(src.c_str(), folder.Join("hard").c_str()));
    EXPECT_EQ(fs::hard_link_count(src), 1u);
    folder.MakeFolder("folder");
    ASSERT_EQ(::mkfifo(folder.Join("pipe").c_str(), 0600), 0);
    for (const auto& from : {folder.Join("none"), folder.Join("folder"), folder.Join("pipe"), std::string()})
        EXPECT_FALSE(LFile::CopyFile(from.c_str(), dst.c_str())) << from;
    for (const auto& to : {folder.Join("folder"), folder.Join("none/x"), std::string()})
        EXPECT_FALSE(LFile::CopyFile(src.c_str(), to.c_str())) << to;
    EXPECT_FALSE(LFile::CopyFile(nullptr, nullptr));
    EXPECT_EQ(Content(dst).size(), 300'000u);
    for (const std::string& name : kNames) {
        EXPECT_TRUE(LFile::CopyFile(src.c_str(), folder.Join("folder/" + name).c_str())) << name;
        EXPECT_TRUE(LFile::CopyFile(folder.Join("folder/" + name).c_str(), dst.c_str())) << name;
    }
    EXPECT_EQ(Tree(folder.Join("folder")).size(), kNames.size());  // no rests beside them
}

TEST(LFileCopy, LinksStayLinks) {
    const TempFolder folder;
    folder.Write("target", "t");
    folder.MakeFolder("folder");
    fs::create_symlink("target", folder.Join("link"));
    folder.Write("dst", "old");
    const auto copy = [&](const char* to) {
        return LFile::CopyFile(folder.Join("link").c_str(), folder.Join(to).c_str());
    };
    EXPECT_TRUE(copy("dst"));
    EXPECT_TRUE(copy("$(touch X)\"`"));
    EXPECT_TRUE(copy("folder"));
    EXPECT_FALSE(copy("link"));
    EXPECT_EQ(Tree(folder.Path()), (std::vector<std::string>{"$(touch X)\"` -> target", "dst -> target", "folder/",
                                                             "folder/link -> target", "link -> target", "target=t"}));
}

TEST(LFileCopy, FoldersAreCopiedWholeButNotIntoThemselves) {
    const TempFolder folder;
    for (const std::string& name : kNames) folder.Write("src/" + name, name);
    folder.Write("src/sub/deep/file", "1");
    fs::create_symlink("..", folder.Join("src/sub/up"));
    const auto tree = Tree(folder.Join("src"));
    LFile::CopyFolderFiles(folder.Join("src").c_str(), folder.Join("new/dst").c_str());
    EXPECT_EQ(Tree(folder.Join("new/dst")), tree);
    folder.Write("new/dst/sub/more", "2");
    LFile::CopyFolderFiles(folder.Join("src").c_str(), folder.Join("new/dst").c_str());
    EXPECT_EQ(Tree(folder.Join("new/dst")).size(), tree.size() + 1);
    fs::create_symlink(folder.Join("src/sub"), folder.Join("inside"));
    for (const char* into : {"src", "src/sub/deep", "src/new", "src/../src/x/y", "inside", "inside/z"})
        LFile::CopyFolderFiles(folder.Join("src").c_str(), folder.Join(into).c_str());
    EXPECT_EQ(Tree(folder.Join("src")), tree);
    // A folder of the copy leads back into the source.
    fs::create_directory_symlink(folder.Join("src/sub/deep"), folder.MakeFolder("back") + "/sub");
    LFile::CopyFolderFiles(folder.Join("src").c_str(), folder.Join("back").c_str());
    EXPECT_EQ(Tree(folder.Join("src")), tree);
    LFile::CopyFolderFiles(folder.Join("src/plain").c_str(), folder.Join("other").c_str());
    LFile::CopyFolderFiles(folder.Join("src").c_str(), folder.Join("src/plain").c_str());
    EXPECT_FALSE(fs::exists(folder.Join("other")));
}

TEST(LFileCopy, LooksAtPathsOfAFolderThatCantBeSearched) {
    const TempFolder folder;
    const std::string closed = folder.MakeFolder("closed");
    EXPECT_EXIT(LookFromAFolderThatCantBeSearched(closed.c_str()), testing::ExitedWithCode(0), "");
    ::chmod(closed.c_str(), 0700);
}

TEST(RunCommandLineProcess, IsTrueForASuccessOnly) {
    for (const auto& [command, result] :
         {std::pair("true", true), std::pair("exit 1", false), std::pair("kill -9 $$", false),
          std::pair("no-such-command-", false), std::pair("test \"a b\" = 'a b'", true), std::pair("", true),
          std::pair("-x", false)})
        EXPECT_EQ(RunCommandLineProcess((std::string(command) + " 2>/dev/null").c_str()), result) << command;
    EXPECT_FALSE(RunCommandLineProcess(nullptr));
    // The reader has gone: with default signals the writer ends, instead of writing for ever.
    const auto before = std::signal(SIGPIPE, SIG_IGN);
    EXPECT_TRUE(RunCommandLineProcess("yes | head -n 1 >/dev/null"));
    std::signal(SIGPIPE, before);
}
