#include "quillo/ScheduleBook.h"
#include "support/TempFolder.h"
#include "support/TimeZone.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace tools {
namespace {

namespace fs = std::filesystem;

constexpr time_t sundayNoon = 1'795'348'800;  // 2026-11-22 12:00:00 UTC

class ScheduleBookTest : public ::testing::Test {
protected:
    std::string File() const { return folder.Join("schedules.json"); }

    TempFolder folder;

private:
    TimeZone zone{"UTC0"};
};

std::vector<std::string> NamesOf(const std::vector<NewSchedule>& schedules) {
    std::vector<std::string> names;
    for (const NewSchedule& schedule : schedules) names.push_back(schedule.name);
    return names;
}

TEST_F(ScheduleBookTest, KeepsWhatWasPut) {
    ScheduleBook book(File());
    EXPECT_TRUE(book.Load());
    EXPECT_TRUE(book.Schedules().empty());
    book.Put({"once", sundayNoon, false, false, 0});
    book.Put({"weekly", sundayNoon, false, true, 0x7F});
    book.Put({"once", sundayNoon + 60, true, false, 0});
    ASSERT_TRUE(book.Save());

    ScheduleBook again(File());
    ASSERT_TRUE(again.Load());
    ASSERT_EQ(NamesOf(again.Schedules()), (std::vector<std::string>{"weekly", "once"}));
    EXPECT_EQ(again.Schedules()[0].weekdays, 0x7F);
    EXPECT_EQ(again.Schedules()[1].start, sundayNoon + 60);
    EXPECT_TRUE(again.Schedules()[1].daily);
    EXPECT_TRUE(again.Remove("once"));
    EXPECT_FALSE(again.Remove("once"));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.Path()), fs::directory_iterator()), 1)
        << "a temporary was left";
}

TEST_F(ScheduleBookTest, TellsADamagedFileFromNone) {
    for (const char* text : {"", "{", "[]", R"({"schedules":[{"name":"x"}]})", R"({"schedules":[{"name":7}]})"}) {
        std::ofstream(File()) << text;
        ScheduleBook book(File());
        EXPECT_FALSE(book.Load()) << text;
        EXPECT_TRUE(book.Schedules().empty());
    }
}

TEST_F(ScheduleBookTest, SavingIntoAMissingFolderFails) {
    ScheduleBook book(folder.Join("absent/schedules.json"));
    EXPECT_FALSE(book.Save());
}

TEST_F(ScheduleBookTest, FindsWhatIsDue) {
    const time_t at = sundayNoon;
    const NewSchedule once{"", at, false, false, 0};
    const NewSchedule daily{"", at - 100 * 86'400, true, true, 0};
    const NewSchedule sundays{"", at - 100 * 86'400, false, true, 0x01};
    const NewSchedule mondays{"", at - 100 * 86'400, false, true, 0x02};
    const NewSchedule never{"", at, false, true, 0x00};
    const NewSchedule midnight{"", at + 12 * 3600, false, true, 0x02};  // Monday 00:00:00
    const struct {
        const char* what;
        NewSchedule schedule;
        time_t now;
        bool due;
    } cases[] = {
        {"ten seconds early", once, at - 10, true},
        {"the earliest", once, at - 15, true},
        {"too early", once, at - 16, false},
        {"a minute late", once, at + 60, true},
        {"too late", once, at + 61, false},
        {"daily, another date", daily, at - 10, true},
        {"daily, another time", daily, at - 3600, false},
        {"the weekday", sundays, at - 10, true},
        {"another weekday", mondays, at - 10, false},
        {"the weekday of another week", mondays, at + 8 * 86'400 - 10, true},
        {"no weekday", never, at - 10, false},
        {"the day begins after the launch", midnight, at + 12 * 3600 - 10, true},
    };
    for (const auto& c : cases) EXPECT_EQ(!DueSchedules({c.schedule}, c.now).empty(), c.due) << c.what;
}

}  // namespace
}  // namespace tools
