#include "files/LSpecialFolders.h"
#include "MountTable.h"
#include "UserDirs.h"
#include "files/LFile.h"
#include "support/FolderTree.h"
#include "support/TempFolder.h"
#include "text/LCopyBounded.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// A home of its own.
class LSpecialFoldersTest : public testing::Test {
protected:
    LSpecialFoldersTest() {
        for (const char* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"}) ::unsetenv(name);
        ::setenv("HOME", home.Path().c_str(), 1);
    }
    ~LSpecialFoldersTest() override {
        ::setenv("HOME", homeBefore.c_str(), 1);
        platform::SetApplicationsFolder("/opt");
    }

    // What an operation gives, the home folder as "~".
    template <class Operation>
    std::string Get(Operation operation) const {
        char path[LTextBufferSize] = "untouched";
        operation(path);
        std::string text = path;
        if (text.starts_with(home.Path())) text.replace(0, home.Path().size(), "~");
        return text;
    }

    const std::string homeBefore = std::getenv("HOME") ? std::getenv("HOME") : "";
    const TempFolder home;
};

}  // namespace

TEST_F(LSpecialFoldersTest, AreFoundOrMade) {
    home.Write(".config/user-dirs.dirs", "XDG_VIDEOS_DIR=\"$HOME/Filme/neu\"\nXDG_MUSIC_DIR=\"$HOME/\"\n");
    const struct {
        void (*get)(char*);
        const char* path;
    } rows[] = {
        {LFile::GetUserDocumentsFolder, "~/Documents"},
        {LFile::GetUserDesktopFolder, "~/Desktop"},
        {LFile::GetUserMusicFolder, "~/Music"},
        {LFile::GetUserVideoFolder, "~/Filme/neu"},
        {LFile::GetUserPicturesFolder, "~/Pictures"},
        {LFile::GetUserDownloadFolder, "~/Downloads"},
        {LFile::GetUserApplicationsFolder, "~/Applications"},
        {LFile::GetTempFolder, "~/.cache"},
        {LFile::GetUserDataFolder, "~/.local/share"},
        {LFile::GetSharedDataFolder, "~/.local/share"},
        {LFile::GetUserDataFolderApp, "~/.local/share/schedulehelper"},
        {LFile::GetSharedDataFolderApp, "~/.local/share/schedulehelper/Shared"},
        {LFile::GetUserFolder, "~"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Get(row.get), row.path);
        EXPECT_TRUE(std::filesystem::is_directory(home.Path() + (row.path + 1))) << row.path;
    }
    const auto own = [](char* dst) { LFile::GetUserDataFolderAppSubFolder("x y", dst); };
    const auto shared = [](char* dst) { LFile::GetSharedDataFolderAppSubFolder("all", dst); };
    EXPECT_EQ(Get(own), "~/.local/share/schedulehelper/x y");
    EXPECT_EQ(Get(shared), "~/.local/share/schedulehelper/Shared/all");
    struct stat status {};
    ASSERT_EQ(::stat((home.Path() + "/.local/share/schedulehelper/Shared/all").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0777u);
    ::setenv("HOME", "not absolute", 1);
    const passwd* const user = ::getpwuid(::getuid());
    const std::string passwordHome = user ? user->pw_dir : "";
    EXPECT_EQ(Get(LFile::GetUserFolder), passwordHome.empty() ? "/" : passwordHome);
    EXPECT_EQ(Get(LFile::GetUserFolderNonSandboxed), passwordHome);
}

// A folder that was made under a cut path would be somebody else's, or nobody's.
TEST_F(LSpecialFoldersTest, PathsThatAreTooLongAreNotMade) {
    const std::string deep = home.MakeFolder(std::string(200 - home.Path().size(), 'd'));
    const std::string name(100, 'n');
    ::setenv("XDG_DATA_HOME", deep.c_str(), 1);
    char path[LTextBufferSize];
    LFile::GetUserDataFolderAppSubFolder(name.c_str(), path);
    LFile::GetSharedDataFolderAppSubFolder(name.c_str(), path);
    GetUserSpecialFolder(path, 4711, std::string(300, 'f').c_str());
    ::unsetenv("XDG_DATA_HOME");
    EXPECT_EQ(Tree(deep), (std::vector<std::string>{"schedulehelper/", "schedulehelper/Shared/"}));
    EXPECT_EQ(Tree(home.Path()).size(), 3u);
}

TEST_F(LSpecialFoldersTest, ApplicationsAreLookedForAtTheUsersFirst) {
    const TempFolder everybodys;
    platform::SetApplicationsFolder(everybodys.Path());
    everybodys.MakeFolder("Both.app");
    everybodys.MakeFolder("Local.app");
    home.MakeFolder("Applications/Both.app");
    char path[LTextBufferSize];
    EXPECT_TRUE(LFile::GetInstalledApplicationExePath(path, "Both.app"));
    EXPECT_EQ(path, home.Path() + "/Applications/Both.app");
    EXPECT_TRUE(LFile::GetInstalledApplicationExePath(path, "Local.app"));
    EXPECT_EQ(path, everybodys.Path() + "/Local.app");
    EXPECT_FALSE(LFile::GetInstalledApplicationExePath(path, "None.app"));
    EXPECT_EQ(path, everybodys.Path() + "/None.app");
    LFile::GetProgramExecutablePath(path);
    EXPECT_EQ(path + std::string("/Contents/Resources/help"), Get(LFile::GetHelpFolder));
    EXPECT_TRUE(std::filesystem::is_directory(path)) << path;
    EXPECT_EQ(Get(LFile::GetMountedDrivesFolder), Get(LFile::GetNetworkSharesFolder));
}

TEST(LVolumes, AreClassedByTheirFileSystems) {
    const TempFolder folder;
    const char* const path = folder.Path().c_str();
    const struct {
        const char* type;
        int limit;
        unsigned short id;
        bool external, removable, network, local;
    } rows[] = {
        {"ext4", 2, 0, false, false, false, true},          {"vfat", 1, 0, false, false, false, true},
        {"msdos", 0, 0, false, false, false, true},         {"exfat", 2, 0, false, false, false, true},
        {"ntfs3", 2, 0, false, false, false, true},         {"tmpfs", 2, 0, false, false, false, true},
        {"nfs4", 2, 0x6375, true, true, true, false},       {"cifs", 2, 0x6375, true, true, true, false},
        {"fuse.sshfs", 2, 0x6375, true, true, true, false},
    };
    for (const auto& row : rows) {
        platform::SetMountTable("1 1 0:0 / / rw - " + std::string(row.type) + " source rw\n");
        EXPECT_EQ(LFile::GetVolumeFileSizeLimit(path), row.limit) << row.type;
        EXPECT_EQ(LFile::GetVolumeFileSystemID(path), row.id) << row.type;
        EXPECT_EQ(LFile::IsOnExternalDrive(path), row.external) << row.type;
        EXPECT_EQ(LFile::IsOnRemovableMedia(path), row.removable) << row.type;
        EXPECT_EQ(LFile::IsNetworkPath(path), row.network) << row.type;
        EXPECT_EQ(LFile::IsOnLocalDrive(path), row.local) << row.type;
    }
    platform::SetMountTable(std::nullopt);
    for (const char* missing : {"/no/such/path", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(LFile::GetVolumeFileSystemID(missing), 0xFFFF);
        EXPECT_EQ(LFile::GetVolumeAttributes(missing), 0u);
        EXPECT_EQ(LFile::GetVolumeFileSizeLimit(missing), 2);
        EXPECT_TRUE(LFile::IsOnExternalDrive(missing) && LFile::IsOnRemovableMedia(missing) &&
                    LFile::IsNetworkPath(missing) && LFile::IsOnLocalDrive(missing));
    }
}

TEST(LVolumes, SizesInWholeUnits) {
    const struct {
        unsigned long long bytes;
        const char* text;
    } rows[] = {{0, "0 Bytes"},          {1'023, "1023 Bytes"}, {1'024, "1 KB"},       {1'048'575, "1023 KB"},
                {1'610'612'736, "1 GB"}, {1ull << 40, "1 TB"},  {~0ull, "16777215 TB"}};
    for (const auto& row : rows) {
        char text[LTextBufferSize];
        EXPECT_EQ(LFile::GetSizeFormattedBytes(row.bytes, text), static_cast<int>(std::string(row.text).size()));
        EXPECT_STREQ(text, row.text);
    }
}

TEST(ParseFileTypes, ExtensionsOfAFilterList) {
    using std::string_literals::operator""s;
    const auto parse = [](const std::string& filter) {
        NSMutableArray types;
        ParseFileTypes(&types, filter.c_str());
        std::string found;
        for (const NSObject& type : types) found += std::string(type.String().View()) + "|";
        return found;
    };
    EXPECT_EQ(parse("Movies\0*.mov;*.mp4\0All\0*.*\0\0"s), "mov|mp4|");
    EXPECT_EQ(parse("A\0*.a;b;*c;;*.d.e\0B\0\0C\0*.c\0\0"s), "a|d.e|");
    EXPECT_EQ(parse("\0A\0*.a\0\0"s), "");
    EXPECT_EQ(parse("A\0\0"s), "");
    ParseFileTypes(nullptr, "A");
    NSMutableArray types;
    ParseFileTypes(&types, nullptr);
    EXPECT_EQ(types.count(), 0u);
}
