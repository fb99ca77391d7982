#include "app/LScheduleHelper.h"
#include "NSRunningApplication.h"
#include "app/LScheduleHelperKeys.h"
#include "support/ProbeApplication.h"

#include <gtest/gtest.h>

#include <climits>
#include <unistd.h>

namespace {

TEST(LScheduleHelper, RunsOnTheSeventhMinorVersionAndLaterByTheirLowBytes) {
    EXPECT_FALSE(LIsLionOrLater(10, 6));
    EXPECT_TRUE(LIsLionOrLater(10, 7));
    EXPECT_TRUE(LIsLionOrLater(10, 10));
    EXPECT_TRUE(LIsLionOrLater(11, 0));
    EXPECT_FALSE(LIsLionOrLater(9, 99));
    EXPECT_FALSE(LIsLionOrLater(0, 0));
    EXPECT_TRUE(LIsLionOrLater(266, 263));   // 10.7
    EXPECT_FALSE(LIsLionOrLater(266, 256));  // 10.0
}

TEST(LScheduleHelper, StartsItsOwnVersionOnly) {
    EXPECT_TRUE(LIsMainAppVersion(2, 14));
    EXPECT_FALSE(LIsMainAppVersion(2, 13));
    EXPECT_FALSE(LIsMainAppVersion(2, 15));
    EXPECT_FALSE(LIsMainAppVersion(2, 140));
    EXPECT_FALSE(LIsMainAppVersion(3, 0));
    EXPECT_FALSE(LIsMainAppVersion(0, 0));
    EXPECT_FALSE(LIsMainAppVersion(INT_MAX, INT_MIN));
}

// For its lifetime one application runs, as far as the helper sees.
class OneRuns {
public:
    OneRuns(const std::string& bundle, const char* name) {
        platform::SetRunningApplications([=](const NSString&) {
            return std::vector{NSRunningApplication(NSURL::fileURLWithPath(NSString(bundle)), NSString(name), 1)};
        });
    }
    ~OneRuns() { platform::SetRunningApplications(nullptr); }
    OneRuns(const OneRuns&) = delete;
    OneRuns& operator=(const OneRuns&) = delete;
};

TEST(LScheduleHelper, LeavesTheVeryBundleThatRunsAloneAndStartsAnotherCopy) {
    const std::string identifier = "com.example.probe.helper" + std::to_string(::getpid());
    const char* const appBundleId = identifier.c_str();
    const std::string version = "<key>CFBundleVersion</key><string>2.14.2</string>";
    ProbeApplication one(identifier, version), other(identifier, version);
    const std::string link = one.Folder().Join("Link.app");
    ASSERT_EQ(symlink(one.Bundle().c_str(), link.c_str()), 0);
    LScheduleHelper helper;
    const auto running = [&] {
        return NSRunningApplication::runningApplicationsWithBundleIdentifier(NSString(appBundleId)).size();
    };
    {
        const OneRuns runs(one.Bundle(), "Probe");
        helper.launchMainApp(appBundleId, one.Bundle().c_str());
        helper.launchMainApp(appBundleId, link.c_str());
    }
    EXPECT_EQ(running(), 0u);
    {
        const OneRuns runs(one.Bundle(), "Probe");
        helper.launchMainApp(appBundleId, other.Bundle().c_str());
    }
    EXPECT_FALSE(other.Report().empty());
    EXPECT_EQ(running(), 1u);
    {
        const OneRuns runs("/no/such/Probe.app", "Probe");  // can't be examined: not this one
        helper.launchMainApp(appBundleId, one.Bundle().c_str());
    }
    EXPECT_FALSE(one.Report().empty());
    EXPECT_EQ(running(), 2u);
}

TEST(LScheduleHelper, KnowsTheMainApplicationByItsDisplayName) {
    LScheduleHelper helper;
    const OneRuns runs("/Applications/Quillo.app", kMainAppName);
    EXPECT_TRUE(helper.isMainAppRunning());
    const OneRuns renamed("/Applications/Quillo.app", "quillo");
    EXPECT_FALSE(helper.isMainAppRunning());
}

}  // namespace
