#include "scheduler/LGCDScheduler.h"

#include "UserDefaultsStore.h"
#include "VirtualClock.h"
#include "support/FaultyFileCalls.h"
#include "support/ObservedScheduler.h"
#include "support/TempFolder.h"
#include "support/TimeZone.h"

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <thread>

namespace {

constexpr long kDay = 86400, kHour = 3600;
constexpr long kNow = 1795564800 + 10 * kHour;  // Wednesday, 2026-11-25 10:00:00 UTC
constexpr char kApp[] = "com.example.app";
constexpr LWeekDay kNoDay{};

NSString S(std::string_view text) {
    return NSString(text);
}

class CountingFileCalls : public FaultyFileCalls {
public:
    int Rename(const char* from, const char* to) override {
        renames++;
        return FaultyFileCalls::Rename(from, to);
    }
    int renames = 0;
};

class LGCDSchedulerTest : public testing::Test {
protected:
    LGCDSchedulerTest() { platform::SetStandardUserDefaults(storePath, calls); }
    ~LGCDSchedulerTest() override { platform::SetStandardUserDefaults("/nonexistent/store.plist"); }

    void AddOnce(const char* name, long start = kNow + 60) {
        scheduler.Add(kApp, app.c_str(), name, LDateTime(start), false, false, kNoDay);
    }
    std::string KeyOf(const std::string& name) const { return "LGCDSCHEDULER_" + std::string(kApp) + app + name; }
    NSDictionary File() const { return NSDictionary::dictionaryWithContentsOfFile(S(storePath)); }
    std::vector<std::string> ListedNames() const {
        std::vector<std::string> names;
        for (const NSObject& key : File().valueForKey(S("LGCDSCHEDULER_SKED_ALL")).Array()) {
            const std::string text(key.String().View());
            names.push_back(text.starts_with(KeyOf("")) ? text.substr(KeyOf("").size()) : text);
        }
        return names;
    }
    bool IsStored(const std::string& name) const { return static_cast<bool>(File().valueForKey(S(KeyOf(name)))); }
    // How often each name has fired when the clock has moved on.
    size_t FiresAfter(const char* name, long seconds) {
        scheduler.fires.clear();
        clock.Advance(seconds);
        return scheduler.fires[kApp + app + name].size();
    }

    const TempFolder folder;
    const TimeZone utc{"UTC0"};
    const std::string storePath = folder.Join("config/store.plist");
    const std::string app = folder.MakeFolder("My.app");
    CountingFileCalls calls;
    platform::VirtualClock clock{kNow};
    ObservedScheduler scheduler;
};

using Names = std::vector<std::string>;

}  // namespace

TEST_F(LGCDSchedulerTest, AYearOfSchedules) {
    AddOnce("once");
    scheduler.Add(kApp, app.c_str(), "daily", LDateTime(9 * kHour), true, false, kNoDay);
    scheduler.Add(kApp, app.c_str(), "weekly", LDateTime(9 * kHour), false, true, LWeekDay{0x22});
    AddOnce("passed", kNow);
    clock.Advance(365 * kDay);

    auto fires = [&](const char* name) { return scheduler.fires[kApp + app + name]; };
    EXPECT_EQ(fires("once"), std::vector<long>{kNow + 60});
    EXPECT_TRUE(fires("passed").empty());
    ASSERT_EQ(fires("daily").size(), 365u);
    for (size_t i = 0; i < 365; i++) EXPECT_EQ(fires("daily")[i], kNow + 23 * kHour + static_cast<long>(i) * kDay);
    ASSERT_EQ(fires("weekly").size(), 104u);  // first Friday, the 27th, then Monday, the 30th
    for (size_t i = 0; i < 104; i++)
        EXPECT_EQ(fires("weekly")[i], kNow - kHour + (i % 2 ? 5 : 2) * kDay + static_cast<long>(i / 2) * 7 * kDay);
    EXPECT_EQ(ListedNames(), (Names{"once", "daily", "weekly", "passed"}));  // also what has fired
}

TEST_F(LGCDSchedulerTest, HasTimersUntilTheLastOnceHasFired) {
    EXPECT_FALSE(scheduler.HasTimers());
    AddOnce("once");
    clock.Advance(59);
    EXPECT_TRUE(scheduler.HasTimers());
    clock.Advance(1);
    EXPECT_FALSE(scheduler.HasTimers());
    AddOnce("passed", kNow);
    clock.Advance(1000 * kDay);
    EXPECT_TRUE(scheduler.HasTimers());
    AddOnce("beyond all calendars", 1L << 62);
    EXPECT_EQ(FiresAfter("beyond all calendars", 100 * 365 * kDay), 0u);
}

// The machine has moved east since the helper started. There it is Thursday 00:00, and Thursday 00:30 is meant.
TEST_F(LGCDSchedulerTest, PlansInTheZoneThatTheMachineIsInNow) {
    scheduler.Add(kApp, app.c_str(), "before", LDateTime(kNow + kHour), false, true, LWeekDay{0x08});
    ::setenv("TZ", "EAST-14", 1);
    const LDateTime start(kNow + kHour / 2);
    scheduler.Add(kApp, app.c_str(), "after", start, false, true, LWeekDay{0x10});
    clock.Advance(kHour / 2);
    EXPECT_EQ(scheduler.fires[kApp + app + "after"], std::vector<long>{start.Seconds()});
    ::setenv("TZ", "WEST10", 1);  // still Wednesday 00:30
    scheduler.LoadFromSettings();
    clock.Advance(7 * kDay);
    EXPECT_EQ(scheduler.fires[kApp + app + "before"], std::vector<long>{kNow + kHour});
    EXPECT_EQ(scheduler.fires[kApp + app + "after"], (std::vector<long>{start.Seconds(), start.Seconds() + kDay}));
}

// Schedules count whole seconds; the rest of the second in which one was added comes on top.
TEST_F(LGCDSchedulerTest, StartsWithinItsSecondHoweverFarTheClockIsInOne) {
    for (const uint32_t passedNs : {0u, 1u, 999'999'999u}) {
        clock.SetWall(kNow, passedNs);
        AddOnce("once");
        uint64_t firedNs = 0;
        scheduler.onStart = [&] { firedNs = clock.BootNs(); };
        const uint64_t addedNs = clock.BootNs();
        clock.Advance(61);
        EXPECT_EQ(scheduler.fires[kApp + app + "once"].back(), kNow + 60) << passedNs;
        EXPECT_EQ(firedNs - addedNs, 60'000'000'000u);
    }
}

TEST_F(LGCDSchedulerTest, StoredForm) {
    scheduler.Add("id", "/Path.app", "N", LDateTime(-5), true, false, LWeekDay{0xFF});
    NSMutableDictionary expected;
    expected.setValueForKey(S("id"), S("APP_BUNDLEID"));
    expected.setValueForKey(S("/Path.app"), S("APP_PATH"));
    expected.setValueForKey(S("N"), S("SKED_NAME"));
    expected.setValueForKey(NSNumber::numberWithLong(-5), S("START_TIME"));
    expected.setValueForKey(NSNumber::numberWithBool(true), S("IS_DAILY"));
    expected.setValueForKey(NSNumber::numberWithBool(false), S("IS_WEEKLY"));
    expected.setValueForKey(NSNumber::numberWithUnsignedInt(255), S("WEEKDAY_MASK"));
    const NSDictionary stored = File().valueForKey(S("LGCDSCHEDULER_id/Path.appN")).Dictionary();
    EXPECT_EQ(stored, expected);
    EXPECT_TRUE(stored.valueForKey(S("IS_WEEKLY")).Number().IsBool());
    EXPECT_EQ(ListedNames(), Names{"LGCDSCHEDULER_id/Path.appN"});
}

TEST_F(LGCDSchedulerTest, AddReplacesWithOneWritePerOperation) {
    const auto writes = [&] { return std::exchange(calls.renames, 0); };
    AddOnce("a");
    AddOnce("b");
    EXPECT_EQ(writes(), 2);
    AddOnce("a", kNow + 120);
    EXPECT_EQ(writes(), 1);
    EXPECT_EQ(ListedNames(), (Names{"b", "a"}));
    clock.Advance(300);
    EXPECT_EQ(scheduler.fires[kApp + app + "a"], std::vector<long>{kNow + 120});

    scheduler.Delete(kApp, app.c_str(), "b");
    EXPECT_EQ(writes(), 1);
    scheduler.Delete(kApp, app.c_str(), "b");
    scheduler.DeleteAll(kApp, "/Other.app");
    EXPECT_EQ(writes(), 0);
    AddOnce("c");
    writes();
    scheduler.DeleteAll(kApp, app.c_str());
    EXPECT_EQ(writes(), 1);
    EXPECT_EQ(File().count(), 1u);
    EXPECT_TRUE(ListedNames().empty() && !scheduler.HasTimers());
}

TEST_F(LGCDSchedulerTest, CaseCountsInTheStoreNotInMemory) {
    AddOnce("Morning");
    AddOnce("MORNING");  // takes "Morning" out of memory
    EXPECT_EQ(ListedNames(), (Names{"Morning", "MORNING"}));
    EXPECT_EQ(FiresAfter("Morning", 60) + FiresAfter("MORNING", 0), 0u);
    scheduler.LoadFromSettings();
    scheduler.Delete("COM.example.APP", app.c_str(), "mOrNiNg");  // one record, no stored entry
    EXPECT_TRUE(scheduler.HasTimers() && IsStored("Morning") && IsStored("MORNING"));
    scheduler.Delete(kApp, app.c_str(), "morning");
    EXPECT_FALSE(scheduler.HasTimers());
    scheduler.LoadFromSettings();
    scheduler.DeleteAll("COM.EXAMPLE.APP", app.c_str());
    EXPECT_FALSE(scheduler.HasTimers());
    EXPECT_TRUE(IsStored("Morning"));
}

TEST_F(LGCDSchedulerTest, DeleteAllTakesLongerPathsOutOfTheStoreOnly) {
    const std::string app2 = folder.MakeFolder("My.app2");
    scheduler.Add(kApp, app2.c_str(), "other", LDateTime(kNow + 60), false, false, kNoDay);
    scheduler.Add(kApp, app2.c_str(), "second", LDateTime(kNow + 60), false, false, kNoDay);
    AddOnce("mine");
    scheduler.Add("another.id", app.c_str(), "foreign", LDateTime(kNow + 60), false, false, kNoDay);
    scheduler.DeleteAll(kApp, app.c_str());
    EXPECT_EQ(ListedNames(), Names{"LGCDSCHEDULER_another.id" + app + "foreign"});
    clock.Advance(60);
    EXPECT_EQ(scheduler.fires.size(), 3u);  // all but "mine"
    EXPECT_FALSE(scheduler.fires.contains(kApp + app + "mine"));
    scheduler.DeleteAll("", "");  // the prefix of every key
    EXPECT_TRUE(ListedNames().empty());
}

TEST_F(LGCDSchedulerTest, NamesThatWouldHarmTheStoreAreIgnored) {
    AddOnce("kept");
    const char* const bad[][3] = {{"", "", "SKED_ALL"},     {"SKED", "_", "ALL"},  {nullptr, "/a", "n"},
                                  {"id", nullptr, "n"},     {"id", "/a", nullptr}, {"id", "/a", "\xC3"},
                                  {"\xED\xA0\x80", "", "n"}};
    for (const auto& [bundle, path, name] : bad) {
        scheduler.Add(bundle, path, name, LDateTime(kNow + 60), false, false, kNoDay);
        scheduler.Delete(bundle, path, name);
    }
    scheduler.DeleteAll(nullptr, app.c_str());
    scheduler.DeleteAll(kApp, nullptr);
    EXPECT_EQ(ListedNames(), Names{"kept"});
    clock.Advance(60);
    EXPECT_EQ(scheduler.fires.size(), 1u);
}

TEST_F(LGCDSchedulerTest, LongNamesAreCutAtACharacterTheSameEverywhere) {
    std::string name(258, 'x');
    name += "\xC3\xBC and more";  // the letter would be bytes 259 and 260
    AddOnce(name.c_str());
    EXPECT_EQ(ListedNames(), Names{std::string(258, 'x')});
    scheduler.LoadFromSettings();
    EXPECT_TRUE(scheduler.HasTimers());
    EXPECT_EQ(FiresAfter(std::string(258, 'x').c_str(), 60), 1u);
    AddOnce(std::string(259, 'y').c_str(), kNow + 120);
    EXPECT_EQ(FiresAfter(std::string(259, 'y').c_str(), 60), 1u);
    AddOnce((name + " tail").c_str());
    scheduler.Delete(kApp, app.c_str(), name.c_str());
    EXPECT_EQ(ListedNames(), Names{std::string(259, 'y')});
}

TEST_F(LGCDSchedulerTest, LoadsWhatIsWholeAndSkipsTheRest) {
    const auto entry = [](const std::string& bundle, const std::string& path, const std::string& name,
                          const std::string& more) {
        return "<dict><key>APP_BUNDLEID</key>" + bundle + "<key>APP_PATH</key>" + path + "<key>SKED_NAME</key>" + name +
               more + "</dict>";
    };
    const auto text = [](const std::string& value) { return "<string>" + value + "</string>"; };
    const std::string daily = "<key>IS_DAILY</key><true/><key>START_TIME</key><integer>32400</integer>";
    const std::string gone = folder.Join("gone.app"), goneKey = "LGCDSCHEDULER_" + std::string(kApp) + gone + "2";
    const auto keyOf = [&](size_t i) { return i == 2 ? goneKey : KeyOf(std::to_string(i)); };
    const std::string entries[] = {
        entry(text(kApp), text(app), text("0"), daily),
        entry(text(kApp), text(app), text("1"),
              "<key>IS_WEEKLY</key><true/><key>WEEKDAY_MASK</key><integer>255</integer>"),
        entry(text(kApp), text(gone), text("2"), daily),
        entry("<integer>1</integer>", text(app), text("3"), daily),
        entry(text(kApp), text(app), text(std::string(260, 'x')), daily),
        entry(text(kApp), text(app), text("5"),
              "<key>IS_DAILY</key><string>yes</string><key>START_TIME</key><date>2026-01-01T00:00:00Z</date>"),
        "<string>no dictionary</string>",
        "<dict/>"};
    std::string xml =
        "<plist version=\"1.0\"><dict><key>LGCDSCHEDULER_SKED_ALL</key><array><true/><string>no entry</string>"
        "<string>LGCDSCHEDULER_SKED_ALL</string>";
    for (size_t i = 0; i < std::size(entries); i++) xml += "<string>" + keyOf(i) + "</string>";
    xml += "</array>";
    for (size_t i = 0; i < std::size(entries); i++) xml += "<key>" + keyOf(i) + "</key>" + entries[i];
    folder.Write("config/store.plist", xml + "</dict></plist>");
    platform::SetStandardUserDefaults(storePath, calls);

    calls.renames = 0;
    scheduler.LoadFromSettings();
    EXPECT_EQ(calls.renames, 1);  // the entry of the application that is gone
    EXPECT_FALSE(File().valueForKey(S(goneKey)));
    EXPECT_TRUE(IsStored("3") && IsStored("4"));
    EXPECT_EQ(ListedNames().size(), std::size(entries) + 3);  // as it was
    clock.Advance(7 * kDay);
    EXPECT_EQ(scheduler.fires.size(), 2u);
    EXPECT_EQ(scheduler.fires[kApp + app + "0"].size(), 7u);
    EXPECT_EQ(scheduler.fires[kApp + app + "1"].size(), 7u);
    scheduler.LoadFromSettings();
    EXPECT_EQ(calls.renames, 1);
}

TEST_F(LGCDSchedulerTest, LoadsNothingFromNoList) {
    AddOnce("memory only");
    std::filesystem::remove(storePath);
    platform::SetStandardUserDefaults(storePath, calls);
    scheduler.LoadFromSettings();
    EXPECT_FALSE(scheduler.HasTimers());
    EXPECT_FALSE(std::filesystem::exists(storePath));
    AddOnce("first");
    EXPECT_EQ(ListedNames(), Names{"first"});
}

TEST_F(LGCDSchedulerTest, FailedWriteIsMadeGoodByTheNext) {
    AddOnce("a");
    calls.Arm({1, ENOSPC, true});
    AddOnce("b");
    scheduler.Delete(kApp, app.c_str(), "a");
    EXPECT_EQ(ListedNames(), Names{"a"});
    calls.Arm({});
    AddOnce("c");
    EXPECT_EQ(ListedNames(), (Names{"b", "c"}));
    EXPECT_TRUE(!IsStored("a") && IsStored("b"));
    clock.Advance(60);
    EXPECT_EQ(scheduler.fires.size(), 2u);
}

// The store can't be read at the start. Nothing of it may be lost to schedules added meanwhile, and its timers must run
// as soon as it can be read.
TEST_F(LGCDSchedulerTest, UnreadableStoreComesBackWhole) {
    AddOnce("stored");
    calls.Arm({1, EIO, true});
    platform::SetStandardUserDefaults(storePath, calls);
    scheduler.LoadFromSettings();
    EXPECT_FALSE(scheduler.HasTimers());
    AddOnce("first");
    calls.Arm({});
    AddOnce("second");
    EXPECT_EQ(ListedNames(), (Names{"stored", "first", "second"}));
    AddOnce("third");
    EXPECT_EQ(ListedNames(), (Names{"stored", "first", "second", "third"}));
    clock.Advance(60);
    EXPECT_EQ(scheduler.fires.size(), 4u);
}

// A start may change the schedules, its own included: the record that fired goes, one in its place stays.
TEST_F(LGCDSchedulerTest, StartMayChangeSchedules) {
    AddOnce("once");
    scheduler.onStart = [&] {
        scheduler.onStart = nullptr;
        scheduler.Add(kApp, app.c_str(), "once", LDateTime(kNow + 90), false, false, kNoDay);
        AddOnce("passed", kNow);
    };
    clock.Advance(60);
    EXPECT_TRUE(scheduler.HasTimers());
    EXPECT_EQ(FiresAfter("once", 30), 1u);
    AddOnce("once", kNow + 100);
    scheduler.onStart = [&] { scheduler.DeleteAll(kApp, app.c_str()); };
    EXPECT_EQ(FiresAfter("once", 10), 1u);
    EXPECT_FALSE(scheduler.HasTimers());
    scheduler.EvScheduleStart(static_cast<dispatch_source_s*>(nullptr));  // no record's source
}

// On the real clock and the pool's threads: 40 starts while schedules come and go beside them, each exactly once, and
// an end that waits for the start that runs.
TEST(LGCDSchedulerThreads, FiresWhileSchedulesChange) {
    class Counting : public LGCDScheduler {
    public:
        using LGCDScheduler::EvScheduleStart;
        ~Counting() override { StopCallbacks(); }
        void EvScheduleStart(const char*, const char*, const char* skedName) override {
            std::unique_lock lock(mutex);
            EXPECT_TRUE(seen.insert(skedName).second);
            if (seen.size() == 40) all.notify_one();
        }
        std::mutex mutex;
        std::condition_variable all;
        std::set<std::string> seen;
    };
    const TempFolder folder;
    platform::SetStandardUserDefaults(folder.Join("store.plist"));
    Counting scheduler;
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; t++)
        threads.emplace_back([&, t] {
            const LDateTime soon(platform::CurrentClock().WallSeconds() + 2);
            for (int i = 0; i < 20; i++)
                scheduler.Add(kApp, "/x", ("once" + std::to_string(t * 20 + i)).c_str(), soon, false, false, kNoDay);
            for (int i = 0; i < 60; i++) {
                scheduler.Add(kApp, "/y", std::to_string(i).c_str(), soon, true, false, kNoDay);
                scheduler.DeleteAll(kApp, "/y");
            }
        });
    for (auto& thread : threads) thread.join();
    std::unique_lock lock(scheduler.mutex);
    EXPECT_TRUE(scheduler.all.wait_for(lock, std::chrono::seconds(60), [&] { return scheduler.seen.size() == 40; }));
}

TEST(LGCDSchedulerThreads, EndWaitsForARunningStart) {
    struct Slow : LGCDScheduler {
        using LGCDScheduler::EvScheduleStart;
        Slow(std::promise<void>& startedPromise, std::atomic<bool>& endedFlag)
            : started(startedPromise), ended(endedFlag) {}
        ~Slow() override { StopCallbacks(); }
        void EvScheduleStart(const char*, const char*, const char*) override {
            started.set_value();
            for (int i = 0; i < 1000; i++) std::this_thread::yield();
            ended = true;
        }
        std::promise<void>& started;
        std::atomic<bool>& ended;
    };
    const TempFolder folder;
    platform::SetStandardUserDefaults(folder.Join("store.plist"));
    std::promise<void> started;
    std::atomic<bool> ended{false};
    {
        Slow scheduler(started, ended);
        scheduler.Add("id", "/x", "n", LDateTime(platform::CurrentClock().WallSeconds() + 1), false, false, kNoDay);
        started.get_future().wait();
    }
    EXPECT_TRUE(ended);
}
