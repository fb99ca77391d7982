#include "UserDefaultsStore.h"
#include "files/LFile.h"
#include "sandbox/LSandboxBookmarkManager.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;
using Manager = LSandboxBookmarkManager;

// A container as home, and a place outside it.
class LSandboxBookmarkTest : public testing::Test {
protected:
    LSandboxBookmarkTest() {
        ::setenv("HOME", folder.MakeFolder("home").c_str(), 1);
        folder.MakeFolder("outside");
        platform::SetStandardUserDefaults(folder.Join("defaults.plist"));
    }
    ~LSandboxBookmarkTest() override {
        Manager::Destroy();
        ::setenv("HOME", homeBefore.c_str(), 1);
    }

    std::string Path(const char* name) const { return folder.Join("outside/") + name; }
    static NSURL Url(const std::string& path) { return NSURL::fileURLWithPath(NSString(path)); }
    bool Add(const std::string& path, bool save, const char* key) {
        return Manager::AddFilePath(path.c_str(), Url(path), true, save, key);
    }
    static std::string Keys() {
        std::string keys;
        const NSObject saved = NSUserDefaults::standardUserDefaults().objectForKey(NSString("SECURITY_BOOKMARK_KEYS"));
        for (const NSObject& key : saved.Array()) keys += std::string(key.String().View()) + " ";
        return keys;
    }
    static const LSandboxBookmarkItem* Item(const std::string& path) {
        return Manager::Instance()->InstanceGetBookmark(path.c_str());
    }
    static void Again() {
        Manager::Destroy();
        Manager::Create();
    }

    const std::string homeBefore = std::getenv("HOME") ? std::getenv("HOME") : "";
    const TempFolder folder;
};

}  // namespace

TEST_F(LSandboxBookmarkTest, PathsAreRegisteredStartedAndReleased) {
    const std::string file = folder.Write("outside/file", ""), later = Path("later"), inside = folder.Join("home/x");
    // Without an instance nothing happens.
    EXPECT_FALSE(Add(file, true, "k") || Manager::IsAccessStarted(file.c_str()) ||
                 Manager::AddFilePathToSettings(file.c_str(), true, "k"));
    Manager::Retain(file.c_str());
    Manager::Release(file.c_str());
    Manager::Create();
    EXPECT_TRUE(Add(inside, true, "k"));
    EXPECT_FALSE(Manager::AddFilePathToSettings(inside.c_str(), true, "k"));
    EXPECT_EQ(Item(inside), nullptr);

    EXPECT_TRUE(Add(file, false, nullptr));
    EXPECT_TRUE(Add(Path("FILE"), false, nullptr));  // another path here, since there is nothing at it: a second item
    EXPECT_TRUE(Add(file, false, nullptr));
    ASSERT_NE(Item(file), nullptr);
    const NSURL url = Item(file)->Url();
    EXPECT_EQ(url.AccessCount(), 1);
    EXPECT_FALSE(Manager::StartAccessingSecurityScopedResource(file.c_str()));  // it is
    EXPECT_TRUE(Manager::StopAccessingSecurityScopedResource(file.c_str()));
    EXPECT_FALSE(Manager::StopAccessingSecurityScopedResource(file.c_str()));
    EXPECT_FALSE(Manager::IsAccessStarted(file.c_str()));
    EXPECT_TRUE(Manager::StartAccessingSecurityScopedResource(file.c_str()));
    EXPECT_TRUE(Manager::IsAccessStarted(file.c_str()));
    Manager::Retain(file.c_str());
    Manager::Retain(file.c_str());
    Manager::Release(file.c_str());
    EXPECT_EQ(Item(file)->RetainCount(), 1u);
    Manager::Release(file.c_str());
    EXPECT_EQ(Item(file), nullptr);
    EXPECT_EQ(url.AccessCount(), 0);
    Manager::Release(file.c_str());

    // What isn't there yet is a file to be.
    EXPECT_TRUE(Add(later, false, nullptr));
    folder.Write("outside/later", "");
    EXPECT_NE(Item(later), nullptr);
    Manager::Release(later.c_str());  // nobody ever needed it
    EXPECT_EQ(Item(later), nullptr);

    const std::string tooLong = Path(std::string(260, 'x').c_str());
    EXPECT_FALSE(Add(tooLong, false, nullptr));
    EXPECT_FALSE(Add(file, true, std::string(260, 'k').c_str()));
    EXPECT_FALSE(Manager::AddFilePath(file.c_str(), NSURL(), true, false, nullptr));  // knows no access
}

TEST_F(LSandboxBookmarkTest, AFolderCoversWhatItsTextBegins) {
    Manager::Create();
    const std::string movies = folder.MakeFolder("outside/Movies"), file = folder.Write("outside/Movies/a", "");
    folder.Write("outside/Movies 2/b", "");
    EXPECT_TRUE(Add(movies, false, nullptr));
    EXPECT_TRUE(Manager::IsAccessStarted(file.c_str()));
    EXPECT_TRUE(Manager::IsAccessStarted(Path("movies").c_str()));
    EXPECT_TRUE(Manager::IsAccessStarted(Path("Movies 2/b").c_str()));
    EXPECT_FALSE(Manager::IsAccessStarted(Path("Music").c_str()));
    EXPECT_EQ(Manager::Instance()->InstanceGetParentBookmark(file.c_str()), Item(movies));
}

TEST_F(LSandboxBookmarkTest, SavedOnesComeBackUnlessTheyAreGone) {
    const std::string file = folder.Write("outside/file", ""), gone = folder.MakeFolder("outside/gone");
    const std::string replaced = folder.Write("outside/replaced", "");
    Manager::Create();
    EXPECT_TRUE(Add(file, true, "one"));
    EXPECT_TRUE(Manager::AddFilePathToSettings(file.c_str(), false, "two"));
    EXPECT_FALSE(Manager::AddFilePathToSettings(file.c_str(), false, "SECURITY_BOOKMARK_KEYS"));
    EXPECT_EQ(Item(file)->RetainCount(), 2u);
    EXPECT_TRUE(Add(gone, true, "gone"));
    EXPECT_TRUE(Add(replaced, true, "replaced"));
    EXPECT_EQ(Keys(), "one two gone replaced ");
    fs::remove(gone);
    fs::rename(folder.Write("outside/new", ""), replaced);
    NSUserDefaults& defaults = NSUserDefaults::standardUserDefaults();
    const NSData before = defaults.objectForKey(NSString("replaced")).Data();
    Again();
    EXPECT_EQ(Keys(), "one two replaced ");
    EXPECT_FALSE(defaults.objectForKey(NSString("gone")));
    EXPECT_NE(defaults.objectForKey(NSString("replaced")).Data(), before);
    EXPECT_TRUE(Manager::IsAccessStarted(file.c_str()) && Manager::IsAccessStarted(replaced.c_str()));
    // Two keys of one path come back as two items; the defaults outlive both.
    Manager::Release(file.c_str());
    EXPECT_NE(Item(file), nullptr);
    Manager::Release(file.c_str());
    EXPECT_EQ(Item(file), nullptr);
    EXPECT_EQ(Keys(), "one two replaced ");

    // Damage of every kind: what can't be resolved goes.
    const std::string whole(defaults.objectForKey(NSString("one")).Data().View());
    for (size_t length = 0; length < whole.size(); length++)
        defaults.setObjectForKey(NSData::dataWithBytes(whole.data(), length),
                                 NSString("cut " + std::to_string(length)));
    NSMutableArray damaged(defaults.objectForKey(NSString("SECURITY_BOOKMARK_KEYS")).Array());
    for (size_t length = 0; length < whole.size(); length++)
        damaged.addObject(NSString("cut " + std::to_string(length)));
    damaged.addObject(NSNumber::numberWithLong(1));
    damaged.addObject(NSString("text"));
    defaults.setObjectForKey(NSString("no data"), NSString("text"));
    std::string wrong = whole;
    wrong[0] ^= 1;
    defaults.setObjectForKey(NSData::dataWithBytes(wrong.data(), wrong.size()), NSString("two"));
    Manager::Destroy();
    defaults.setObjectForKey(damaged, NSString("SECURITY_BOOKMARK_KEYS"));
    Manager::Create();
    EXPECT_EQ(Keys(), "one replaced  ");  // the number stays, and means nothing
}

TEST_F(LSandboxBookmarkTest, PathsLeadOutOfTheContainerByLinks) {
    char found[260];
    const auto lead = [&](const std::string& path) {
        return LFile::MakeNonSandboxedFilePath(found, path.c_str()) ? std::string(found) : "-" + std::string(found);
    };
    const std::string home = folder.Join("home"), file = folder.Write("outside/dir/file", "");
    fs::create_symlink(folder.Join("outside/dir"), home + "/Downloads");
    fs::create_symlink("nowhere", home + "/broken");
    folder.Write("home/plain", "");
    folder.MakeFolder("home/sub");
    fs::create_symlink(home + "/sub", home + "/within");
    EXPECT_EQ(lead(home + "/Downloads/file"), file);
    EXPECT_EQ(lead(home + "/Downloads/new/take.mov"), Path("dir/new/take.mov"));
    EXPECT_EQ(lead(file), file);
    for (const auto& path : {home + "/plain", home + "/new", home + "/sub/new", home + "/within/new",
                             home + "/broken/new", Path("none"), std::string("/n"), std::string()})
        EXPECT_EQ(lead(path), "-") << path;
    EXPECT_TRUE(LFile::IsPathInSandbox((home + "/x").c_str()));
    EXPECT_FALSE(LFile::IsPathInSandbox("/"));
    EXPECT_TRUE(Manager::IsAccessAllowedByEntitlement((home + "/plain").c_str(), false));
    EXPECT_FALSE(Manager::IsAccessAllowedByEntitlement((home + "/Downloads/file").c_str(), false));
    char real[260], movies[260];
    LFile::GetUserFolderNonSandboxed(real);
    LFile::GetUserVideoFolderNonSandboxed(movies);
    EXPECT_EQ(movies, real + std::string(real[1] ? "/Movies" : "Movies"));
}
