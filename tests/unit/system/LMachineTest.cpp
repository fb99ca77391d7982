#include "system/LMachine.h"
#include "Desktop.h"
#include "support/TempFolder.h"
#include "system/LApplications.h"

#include <gtest/gtest.h>

#include <Foundation/Foundation.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace {

// The desktop is the test's own for its lifetime.
struct FakeDesktop {
    explicit FakeDesktop(platform::Desktop desktop) { platform::SetDesktop(std::move(desktop)); }
    ~FakeDesktop() { platform::SetDesktop({}); }
};

NSDictionary Service(const char* key, NSObject value) {
    NSMutableDictionary properties;
    properties.setValueForKey(std::move(value), NSString(key));
    return properties;
}

NSObject Bytes(std::string_view bytes) {
    return NSData::dataWithBytes(bytes.data(), bytes.size());
}

constexpr OSType kQuillo = 0x5175696C, kProgram = 0x4150504C;

std::vector<std::string> Descriptions() {
    LStringListTemplate<char> list;
    list.AddText("cleared");
    LMachineGetGPUDescriptions(list);
    return {list.Items(), list.Items() + list.Count()};
}

}  // namespace

TEST(LMachine, NamesTheDevicesThatHaveAName) {
    EXPECT_TRUE(Descriptions().empty());
    const std::string longest(259, 'm');
    platform::Desktop desktop;
    desktop.services = {Service("model", Bytes("Card one")),    Service("model", NSString("a text")),
                        Service("name", Bytes("no model")),     Service("model", Bytes("\xFF\xFE\xFD")),
                        Service("model", Bytes(longest + "m")), Service("model", Bytes("Größe"))};
    const FakeDesktop fake(desktop);
    EXPECT_EQ(Descriptions(), (std::vector<std::string>{"Card one", longest, "Größe"}));
}

TEST(LMachine, ComparesVersions) {
    for (const auto& [major, minor] : {std::pair{10, 5}, {10, 15}, {11, 0}})
        EXPECT_TRUE(LIsVersionLeopardOrLater(major, minor));
    for (const auto& [major, minor] : {std::pair{10, 4}, {9, 9}, {0, 0}})
        EXPECT_FALSE(LIsVersionLeopardOrLater(major, minor));
}

TEST(LApplications, FindsAProcessBySignatureAndType) {
    ProcessSerialNumber psn{1, 1};
    EXPECT_FALSE(LGetPSNFromSignature(kQuillo, kProgram, &psn));
    EXPECT_EQ(psn, ProcessSerialNumber());
    platform::Desktop desktop;
    desktop.processes = {
        {{0, 7}, kProgram, 2}, {{0, 8}, 3, kQuillo}, {{0, 9}, kProgram, kQuillo}, {{1, 0}, kProgram, kQuillo}};
    const FakeDesktop fake(desktop);
    EXPECT_TRUE(LGetPSNFromSignature(kQuillo, kProgram, &psn));
    EXPECT_EQ(psn, (ProcessSerialNumber{0, 9}));
    EXPECT_FALSE(LGetPSNFromSignature(kQuillo, 4, &psn));
    EXPECT_EQ(psn, ProcessSerialNumber());
}

TEST(LApplications, RevealsAFileOfTheFolderElseThePathItself) {
    const TempFolder folder;
    const std::string only = folder.MakeFolder("only");
    folder.MakeFolder("only/folders");
    std::filesystem::create_symlink("/etc/passwd", only + "/link");
    const std::string files = folder.MakeFolder("files"), file = folder.Write("files/one", "");
    folder.Write("files/two", "");
    std::vector<std::string> asked;
    std::set<std::string> refused;
    platform::Desktop desktop;
    desktop.select = [&](const std::string& path) {
        asked.push_back(path);
        return !refused.contains(path);
    };
    const FakeDesktop fake(desktop);
    const auto revealed = [&](const std::string& path) {
        asked.clear();
        LRevealInFinder(path.c_str());
        return asked;
    };
    EXPECT_EQ(revealed(file), std::vector<std::string>{file});
    EXPECT_EQ(revealed(only), std::vector<std::string>{only});
    EXPECT_EQ(revealed(folder.Join("missing")), std::vector<std::string>{folder.Join("missing")});
    EXPECT_EQ(revealed(""), std::vector<std::string>());
    ASSERT_EQ(revealed(files).size(), 1u);
    const std::string first = asked[0];
    EXPECT_EQ(std::filesystem::path(first).parent_path(), files);
    refused = {first};
    EXPECT_EQ(revealed(files).size(), 2u);  // the other one
    refused = {files + "/one", files + "/two"};
    EXPECT_EQ(revealed(files).back(), files);
}

TEST(LApplications, KnowsItsOwnBundleAndOthers) {
    EXPECT_FALSE(LIsApplicationBundled());  // a test program is a bare executable
    char path[260], cut[10];
    LGetInstalledApplicationResourcesFolder(path, sizeof path);
    EXPECT_TRUE(std::string(path).ends_with("/Contents/Resources")) << path;
    LGetInstalledApplicationResourcesFolder(cut, sizeof cut);
    EXPECT_EQ(cut, std::string(path).substr(0, 9));
    const std::string whole = std::string(path) + "/resources";
    LGetInstalledApplicationLXAResourcesFolder(path);
    EXPECT_EQ(path, whole);
    EXPECT_FALSE(LIsApplicationInstalled("there is no such one"));
    LOpenAddressBook();  // there is none: nothing happens
}
