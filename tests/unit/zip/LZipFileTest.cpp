#include "zip/LZipFile.h"
#include "support/FolderTree.h"
#include "support/TempFolder.h"
#include "zip/LProcessZip.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::MatchesRegex;

// An archive whose commands are noted, and run without the pause when wanted.
class NotingZip : public LZipFile {
public:
    using LZipFile::LZipFile;

    mutable std::vector<std::string> commands;
    mutable std::string folderAtCommand;
    bool runs = false, succeeds = true;

protected:
    bool RunCommand(const std::string& command) const override {
        commands.push_back(command);
        folderAtCommand = fs::current_path();
        return runs ? LZipFile::RunCommand(command) : succeeds;
    }
    void PauseAfterCommand() const override {}
};

class LZipFileTest : public testing::Test {
protected:
    LZipFileTest() { ::setenv("XDG_CACHE_HOME", folder.Join("cache").c_str(), 1); }
    ~LZipFileTest() override { ::unsetenv("XDG_CACHE_HOME"); }

    const TempFolder folder;
    const std::string archive = folder.Join("x.zip");
};

class Watch : public LProcessInterfaceVoid {
public:
    bool IsToStop() override { return asked++ >= stopAt; }
    void SetError(const char* text) override { seen.push_back(std::string("! ") + text); }
    void SetStatus(const char* text, int level) override { seen.push_back(std::to_string(level) + " " + text); }
    void SetProgress(double fraction) override { seen.push_back(std::to_string(fraction)); }

    int asked = 0, stopAt = 1'000;
    std::vector<std::string> seen;
};

}  // namespace

TEST_F(LZipFileTest, CommandsAreComposedFromWhatIsPending) {
    const std::string a = folder.MakeFolder("a"), exclusions = " -x@" + folder.Path() + "/cache/0\\w{6}";
    const std::string before = fs::current_path();
    {
        NotingZip zip(archive.c_str(), false);
        EXPECT_TRUE(zip.AddFile((a + "/b.txt").c_str()));
        EXPECT_TRUE(zip.AddFile((a + "/c.txt").c_str()));
        EXPECT_TRUE(zip.Save());
        EXPECT_EQ(zip.folderAtCommand, a);
        EXPECT_EQ(fs::current_path(), before);
        EXPECT_TRUE(zip.Save());  // nothing is pending any more
        EXPECT_EQ(zip.commands.size(), 2u);
        EXPECT_TRUE(zip.commands[0].starts_with("/usr/bin/zip -y \"" + archive + "\" \"c.txt\" \"b.txt\" -x@" +
                                                folder.Path() + "/cache/0"));
        EXPECT_TRUE(zip.commands[1].starts_with("/usr/bin/zip -y \"" + archive + "\" -x@"));
        const std::string list = zip.commands[0].substr(zip.commands[0].find("-x@") + 3);
        EXPECT_EQ(Content(list), "*.DS_Store*\n*.svn*\n*.git*\n");
    }
    {
        NotingZip zip(archive.c_str(), "/base", true);
        zip.SetExclusionsOff(true);
        zip.AddFile((a + "/Quillo.app").c_str());
        zip.AddFolder("/f/g");
        zip.SetFolder("/f/g");
        zip.succeeds = false;
        EXPECT_FALSE(zip.Save());
        zip.SetFolder((folder.Join("cache") + "/x/in cache").c_str());
        EXPECT_FALSE(zip.Save());  // still pending
        EXPECT_THAT(zip.commands, ElementsAre("/usr/bin/zip -r -f -y \"" + archive + "\" \"Quillo.app\" \"/f/g\"",
                                              "/usr/bin/zip -r -f -y \"" + archive + "\" \"Quillo.app\" \"in cache\""));
    }
    {
        NotingZip zip(archive.c_str(), false);
        zip.SetExclusionsOff(true);
        zip.RemoveFile("e");
        zip.SetRemovePath("e");
        EXPECT_TRUE(zip.Save());
        zip.SetExclusionsOff(true);
        zip.RemoveFolder("f");
        zip.SetFolder("d\\f.x");
        zip.succeeds = false;
        EXPECT_FALSE(zip.Save());
        EXPECT_THAT(zip.commands, ElementsAre("/usr/bin/zip -d \"" + archive + "\" \"e\"",
                                              "/usr/bin/zip -d \"" + archive + "\" \"d/f.x/*\" ",
                                              "/usr/bin/zip -d \"" + archive + "\" \"f/*\" "));
    }
    NotingZip zip(archive.c_str(), false);
    EXPECT_FALSE(zip.AddFile(std::string(300, 'x').c_str()));
    zip.AddFile(folder.Join("none/x").c_str());
    EXPECT_FALSE(zip.Save());  // its folder is missing, and no other one is meant
    EXPECT_TRUE(zip.commands.empty());
    EXPECT_EQ(fs::current_path(), before);
    // What doesn't fit would be something else when it is cut: another archive, another folder.
    const std::string toolong = folder.Join(std::string(200, 'x')) + "/" + std::string(200, 'x');
    NotingZip cut(toolong.c_str(), false);
    cut.AddFile(folder.Write("content", "").c_str());
    EXPECT_FALSE(cut.Save());
    EXPECT_FALSE(cut.ExtractAllFiles(a.c_str()));
    EXPECT_TRUE(cut.commands.empty());
    EXPECT_FALSE(
        LZipFileAddFolder(archive.c_str(), "content", (folder.Path() + std::string(300, '/') + "a").c_str(), true));
    EXPECT_FALSE(fs::exists(archive));
}

TEST_F(LZipFileTest, NamesOfEveryKindAreNamesOnly) {
    // What the tools themselves keep as it is: unzip takes some bytes that are no UTF-8 for another character set's.
    std::vector<std::string> names;
    const std::string taste = "ab \"'$`\\()*?[];&|<>!#~%{}^=+,@\n\t-.:\x01\xC3\xA4";
    unsigned random = 1;
    for (int i = 0; i < 1'000; i++) {
        std::string name;
        do {
            random = random * 1'664'525 + 1'013'904'223;
            const char c = taste[random >> 8 & 0x3FFFFF ? (random >> 8) % (taste.size() - 2) : 0];
            name += (random >> 30) == 0 ? std::string("\xC3\xA4") : std::string(1, c);
        } while (name.size() < 3 || (random & 7) != 0);
        names.push_back(name);
    }
    names.insert(names.end(),
                 {"-rf", "--help", "-", "-@", "@", "$(touch X)", "`touch X`", "x -d y", "\"; touch X; \"", "-x"});
    NotingZip zip(archive.c_str(), false);
    zip.runs = true;
    zip.SetExclusionsOff(true);
    for (const std::string& name : names) {
        folder.Write("in/" + name, name);
        zip.AddFile(folder.Join("in/" + name).c_str());
    }
    ASSERT_TRUE(zip.Save());
    folder.MakeFolder("out");
    ASSERT_TRUE(zip.ExtractAllFiles(folder.Join("out").c_str()));
    EXPECT_EQ(Tree(folder.Join("out")), Tree(folder.Join("in")));
    EXPECT_FALSE(fs::exists("X"));
    // One by one.
    for (size_t i = 0; i < names.size(); i += 50) {
        fs::remove_all(folder.Join("one"));
        EXPECT_TRUE(zip.Extract(archive.c_str(), folder.Join("one").c_str(), names[i].c_str())) << names[i];
        EXPECT_EQ(Tree(folder.Join("one")), std::vector<std::string>{names[i] + "=" + names[i]});
    }
    size_t left = Tree(folder.Join("in")).size();
    for (const char* name : {"-rf", "@", "$(touch X)", "-x", "`touch X`"}) {
        zip.SetExclusionsOff(true);
        zip.RemoveFile(name);
        zip.SetRemovePath(name);
        EXPECT_TRUE(zip.Save()) << name;
        fs::remove_all(folder.Join("out"));
        ASSERT_TRUE(zip.ExtractAllFiles(folder.Join("out").c_str()));
        EXPECT_EQ(Tree(folder.Join("out")).size(), --left) << name;
    }
}

// unzip takes an archive's name for a pattern, and finds another one by it.
TEST_F(LZipFileTest, ArchivesOfEveryNameAreThemselves) {
    folder.MakeFolder("d[1]");
    for (const char* name : {"a1.zip", "ab.zip", "bc.zip", "d[1]/bc.zip", "a[1].zip", "a*.zip", "[.zip", "b\\c?.zip",
                             "b\\c.zip", "d[1]/b\\c.zip", "]-[!^.zip", "d[1]/-x.zip", "\xC3\xA4?.zip"}) {
        NotingZip zip(folder.Join(name).c_str(), false);
        zip.runs = true;
        zip.SetExclusionsOff(true);
        zip.AddFile(folder.Write("content", name).c_str());
        EXPECT_TRUE(zip.Save()) << name;
        EXPECT_TRUE(zip.ExtractAllFiles(folder.Join("out").c_str())) << name;
        EXPECT_EQ(Content(folder.Join("out/content")), name);
    }
}

// With the real commands, exclusions and pauses.
TEST_F(LZipFileTest, JobsReportAndFoldersGoWithTheirContents) {
    EXPECT_TRUE(LZipFileCreate(archive.c_str()));
    EXPECT_EQ(Content(archive), "PK\5\6" + std::string(20, '\0'));
    EXPECT_FALSE(LZipFileCreate(folder.Join("none/x.zip").c_str()));
    LProcessZipFileAdd add;
    LCopyBounded(add.archivePath, archive.c_str(), LTextBufferSize);
    const auto addNode = [&](const std::string& path) {
        auto* const node = new LZipFileNode;
        LCopyBounded(node->path, path.c_str(), LTextBufferSize);
        add.files.Add(node);
    };
    Watch nothing, stopped, failing;
    EXPECT_EQ(Process(nothing, add), processDone);
    addNode(folder.Join("none"));
    addNode("");
    addNode(folder.Write("a.git", "1"));  // jobs leave nothing out
    stopped.stopAt = 0;
    EXPECT_EQ(Process(stopped, add), processStopped);
    EXPECT_EQ(Process(failing, add), processFailed);
    EXPECT_THAT(failing.seen, ElementsAre("0.000000", "0 a.git", "0.000000", "0 none",
                                          "! File does not exist: \"" + folder.Join("none") + "\""));
    folder.Write("tree/f/b", "2");
    folder.Write("tree/f/c.DS_Store", "3");
    EXPECT_TRUE(LZipFileAddFolder(archive.c_str(), "f", folder.Join("tree").c_str(), false));
    LProcessZipFileExtractAll extract;
    LCopyBounded(extract.archivePath, archive.c_str(), LTextBufferSize);
    LCopyBounded(extract.destinationFolder, folder.Join("out").c_str(), LTextBufferSize);
    Watch whole, missing;
    EXPECT_EQ(Process(whole, extract), processDone);
    EXPECT_THAT(whole.seen, ElementsAre("0.000000", "0 x.zip"));
    EXPECT_EQ(Tree(folder.Join("out")), (std::vector<std::string>{"a.git=1", "f/", "f/b=2"}));
    EXPECT_TRUE(LZipFileDeleteFolder(archive.c_str(), "f"));
    fs::remove_all(folder.Join("out"));
    EXPECT_EQ(Process(whole, extract), processDone);
    EXPECT_EQ(Tree(folder.Join("out")), (std::vector<std::string>{"a.git=1"}));
    LCopyBounded(extract.archivePath, folder.Join("none.zip").c_str(), LTextBufferSize);
    EXPECT_EQ(Process(missing, extract), processFailed);
    EXPECT_EQ(missing.seen.back(), "! File could not be extracted from Zip file: \"" + folder.Join("none.zip") + "\"");
}
