#include "files/LProcessCopy.h"
#include "support/FolderTree.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

class Watch : public LProcessInterfaceVoid {
public:
    bool IsToStop() override { return asked++ >= stopAt; }
    void SetStatus(const char* text, int level) override { status.push_back(std::to_string(level) + text); }
    void SetProgress(double fraction) override { progress.push_back(fraction); }

    int asked = 0, stopAt = 1'000'000;
    std::vector<std::string> status;
    std::vector<double> progress;
};

int CopyFile(const std::string& from, const std::string& to) {
    Watch watch;
    return Process(watch, LProcessCopyFile{from.c_str(), to.c_str()});
}

int CopyFolder(const std::string& from, const std::string& to) {
    Watch watch;
    return Process(watch, LProcessCopyFolder{from.c_str(), to.c_str()});
}

}  // namespace

TEST(LProcessCopyFile, TellsWhatItDoes) {
    const TempFolder folder;
    std::string bytes(100'000, 'a');
    bytes[50'000] = 'b';
    const std::string from = folder.Write("from", bytes), to = folder.Write("to", std::string(200'000, 'o'));
    fs::last_write_time(from, fs::file_time_type(std::chrono::seconds(-3'000'000'000)) + std::chrono::milliseconds(1));
    Watch watch;
    EXPECT_EQ(Process(watch, LProcessCopyFile{from.c_str(), to.c_str()}), processDone);
    EXPECT_EQ(Content(to), bytes);
    EXPECT_EQ(watch.status, (std::vector<std::string>{"0Copy File", "1to"}));
    ASSERT_EQ(watch.progress.size(), 5u);
    EXPECT_EQ(watch.progress[0], 0.0);
    for (size_t i = 1; i < 5; i++) EXPECT_NEAR(watch.progress[i], 0.32768 * static_cast<double>(i - 1), 1e-9);
    struct stat a {
    }, b{};
    ASSERT_TRUE(::stat(from.c_str(), &a) == 0 && ::stat(to.c_str(), &b) == 0);
    EXPECT_EQ(a.st_mtim.tv_sec, b.st_mtim.tv_sec);
    EXPECT_EQ(b.st_mtim.tv_nsec, 0);
    EXPECT_EQ(CopyFile(folder.Write("empty", ""), to), processDone);
    EXPECT_EQ(Content(to), "");
}

TEST(LProcessCopyFile, LeavesNothingHalfAndTheSourceWhole) {
    const TempFolder folder;
    const std::string from = folder.Write("from", std::string(100'000, 'a'));
    for (int stopAt = 0; stopAt < 4; stopAt++) {
        Watch watch;
        watch.stopAt = stopAt;
        EXPECT_EQ(Process(watch, LProcessCopyFile{from.c_str(), folder.Join("to").c_str()}), processStopped);
        EXPECT_FALSE(fs::exists(folder.Join("to"))) << stopAt;
    }
    fs::create_hard_link(from, folder.Join("hard"));
    fs::create_symlink(from, folder.Join("soft"));
    folder.MakeFolder("folder");
    ASSERT_EQ(::mkfifo(folder.Join("pipe").c_str(), 0600), 0);
    for (const char* to : {"from", "hard", "soft", "folder", "pipe", "none/x"})
        EXPECT_EQ(CopyFile(from, folder.Join(to)), processFailed) << to;
    for (const char* source : {"none", "folder", "pipe"})
        EXPECT_EQ(CopyFile(folder.Join(source), folder.Join("to")), processFailed) << source;
    EXPECT_EQ(CopyFile(from, "file"), processFailed);  // no folder
    EXPECT_EQ(CopyFile(from, folder.Join(std::string(260, 'x'))), processFailed);
    Watch watch;
    EXPECT_EQ(Process(watch, LProcessCopyFile{nullptr, nullptr}), processFailed);
    EXPECT_EQ(Content(from).size(), 100'000u);
    EXPECT_EQ(Tree(folder.Path()).size(), 5u);
    // What a link leads to isn't the target.
    folder.Write("precious", "1");
    fs::create_symlink(folder.Join("precious"), folder.Join("to"));
    EXPECT_EQ(CopyFile(from, folder.Join("to")), processDone);
    EXPECT_EQ(Content(folder.Join("precious")), "1");
    EXPECT_FALSE(fs::is_symlink(folder.Join("to")));
}

TEST(LProcessCopyFolder, CopiesAllInStepsOfEqualSize) {
    const TempFolder folder;
    folder.Write("from/a", "1");
    folder.Write("from/b", "2");
    folder.Write("from/sub/c", "3");
    folder.MakeFolder("to");
    Watch watch;
    EXPECT_EQ(Process(watch, LProcessCopyFolder{folder.Join("from").c_str(), folder.Join("to").c_str()}), processDone);
    EXPECT_EQ(Tree(folder.Join("to")), Tree(folder.Join("from")));
    ASSERT_EQ(watch.progress.size(), 6u);  // each file at its start, and after its only chunk
    for (size_t i = 0; i < 6; i++) EXPECT_NEAR(watch.progress[i], static_cast<double>(i / 2) / 3, 1e-6);
    EXPECT_EQ(std::count(watch.status.begin(), watch.status.end(), "1Copy File"), 2);
    EXPECT_EQ(std::count(watch.status.begin(), watch.status.end(), "2Copy File"), 1);
}

TEST(LProcessCopyFolder, NamesLinksAndWhatCantBeCopied) {
    const TempFolder folder;
    for (const std::string& name : kNames) folder.Write("from/" + name, name);
    folder.MakeFolder("from/none/of/these");
    folder.Write("outside/x", "1");
    fs::create_symlink(folder.Join("outside/x"), folder.Join("from/link to file"));
    fs::create_symlink("..", folder.Join("from/none/loop"));
    auto expected = Tree(folder.Join("from"));
    std::replace(expected.begin(), expected.end(), "link to file -> " + folder.Join("outside/x"),
                 std::string("link to file=1"));
    folder.MakeFolder("to");
    EXPECT_EQ(CopyFolder(folder.Join("from"), folder.Join("to")), processDone);
    EXPECT_EQ(Tree(folder.Join("to")), expected);
    // Into itself, by whatever way.
    fs::create_symlink(folder.Join("from/none"), folder.Join("inside"));
    const auto before = Tree(folder.Join("from"));
    for (const char* into : {"from", "from/none", "from/new", "inside", "inside/x", "to/../from/x"})
        EXPECT_EQ(CopyFolder(folder.Join("from"), folder.Join(into)), processFailed) << into;
    fs::create_directory_symlink(folder.Join("from/none/of"), folder.MakeFolder("back") + "/none");
    EXPECT_EQ(CopyFolder(folder.Join("from"), folder.Join("back")), processFailed);
    EXPECT_EQ(Tree(folder.Join("from")), before);
    EXPECT_EQ(CopyFolder(folder.Join("missing"), folder.Join("to")), processFailed);
    // An entry whose path would have to be cut, on either side.
    folder.MakeFolder("long");
    folder.Write("deep/" + std::string(255 - folder.Path().size(), 'x'), "");
    EXPECT_EQ(CopyFolder(folder.Join("deep"), folder.Join("long")), processFailed);
    EXPECT_TRUE(Tree(folder.Join("long")).empty());
}
