#include "MainBundle.h"

#include "support/TempFolder.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace {

TEST(MainBundle, TheInnermostBundleOfAProgram) {
    const struct {
        const char* program;
        const char* bundle;  // null: none
    } cases[] = {
        {"/opt/A.app/Contents/Linux/a", "/opt/A.app"},
        {"/opt/A.app/Contents/MacOS/a", "/opt/A.app"},
        {"/opt/A.app/Contents/Linux/B.app/Contents/MacOS/b", "/opt/A.app/Contents/Linux/B.app"},
        {"A.app/Contents/Linux/a", "A.app"},
        {"/opt/A.app/Contents/Helpers/a", nullptr},
        {"/opt/A.app/Contents/Linux/", nullptr},
        {"/opt/A.app/Contents/Linux", nullptr},
        {"/opt/.app/Contents/Linux/a", nullptr},
        {"/opt/A.bundle/Contents/Linux/a", nullptr},
        {"/usr/bin/a", nullptr},
        {"a", nullptr},
        {"", nullptr},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(platform::BundleOfProgram(c.program), c.bundle ? std::optional<std::string>(c.bundle) : std::nullopt)
            << c.program;
    }
}

TEST(MainBundle, AReplacedProgramKeepsItsPath) {
    const TempFolder folder;
    const std::string longPath = "/" + std::string(250, 'x') + "/" + std::string(250, 'y');
    ASSERT_EQ(::symlink((longPath + " (deleted)").c_str(), folder.Join("exe").c_str()), 0);
    EXPECT_EQ(platform::ProgramOfLink(folder.Join("exe")), longPath);
    EXPECT_FALSE(platform::ProgramOfLink(folder.Join("missing")));
}

TEST(MainBundle, ABareProgramsBundleIsItsFolder) {
    const std::string root = platform::MainBundleRoot();
    EXPECT_EQ(::access((root + "/platform_tests").c_str(), X_OK), 0) << root;
    platform::SetMainBundleRoot("/opt/A.app");
    EXPECT_EQ(platform::MainBundleRoot(), "/opt/A.app");
    platform::SetMainBundleRoot("");
    EXPECT_EQ(platform::MainBundleRoot(), root);
}

}  // namespace
