// Holds docs/timing.md: every row of its table is played on a virtual clock, and Quillo must be started when the row
// says. A row that is added there is tested here; what a row expects is written there only.
#include "UserDefaultsStore.h"
#include "VirtualClock.h"
#include "app/LScheduleHelperKeys.h"
#include "app/LScheduleHelperNotify.h"
#include "support/TempFolder.h"
#include "support/TimeZone.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <sstream>
#include <vector>

namespace {

constexpr const char* kWeekdays[] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) {
        const size_t begin = std::min(part.find_first_not_of(' '), part.size());
        parts.push_back(part.substr(begin, part.find_last_not_of(' ') + 1 - begin));
    }
    return parts;
}

std::string Text(const std::tm& fields, const char* format) {
    char text[64];
    return {text, std::strftime(text, sizeof text, format, &fields)};
}

std::tm LocalFields(time_t moment) {
    std::tm fields{};
    localtime_r(&moment, &fields);
    return fields;
}

// Days since 1970 of a calendar date.
long DayNumber(std::tm fields) {
    fields.tm_hour = fields.tm_min = fields.tm_sec = 0;
    return timegm(&fields) / 86'400;
}

// "2026-01-05 12:00" or "2026-01-05 12:00:10", local time.
time_t Moment(const std::string& date, const std::string& time) {
    std::tm fields{};
    const std::string text = date + " " + time + (time.size() == 5 ? ":00" : "");
    const char* const end = strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &fields);
    EXPECT_TRUE(end && !*end) << text;
    fields.tm_isdst = -1;
    return mktime(&fields);
}

uint8_t Mask(const std::string& days) {
    unsigned mask = 0;
    for (const std::string& day : Split(days, ','))
        for (unsigned n = 0; n < 7; n++)
            if (day == kWeekdays[n]) mask |= 1u << n;
    return static_cast<uint8_t>(mask);
}

// The helper but for its server and its launching: starts are noted.
class Helper final : public LScheduleHelperNotify {
public:
    explicit Helper(std::vector<std::tm>& noted) : starts(noted) { LoadFromSettings(); }
    ~Helper() override { StopCallbacks(); }
    void EvScheduleStart(const char*, const char*, const char*) override {
        starts.push_back(LocalFields(platform::CurrentClock().WallSeconds()));
    }

private:
    std::vector<std::tm>& starts;  // the clock on the wall at each
};

// One row's story.
class Story {
public:
    explicit Story(const std::string& steps) {
        const std::vector<std::string> parts = Split(steps, ';');
        SetZone(parts.at(0));
        clock.SetWall(Moment(parts.at(1).substr(0, 10), parts.at(1).substr(11, 5)));
        Start();
        for (size_t i = 1; i < parts.size(); i++) Play(parts[i]);
    }
    ~Story() {
        helper.reset();
        platform::SetStandardUserDefaults("/nonexistent/store.plist");
    }
    Story(const Story&) = delete;
    Story& operator=(const Story&) = delete;

    // As the table has it: those that follow each other at the same time of day are told together.
    std::string Starts() const {
        std::string text;
        for (size_t i = 0, next; i < starts.size(); i = next) {
            for (next = i + 1; next < starts.size() && Follows(starts[next - 1], starts[next]);) next++;
            if (i > 0) text += "; ";
            if (next == i + 1)
                text += Text(starts[i], "%F %T");
            else
                text += Text(starts[i], "%T, ") + std::to_string(next - i) + " times from " + Day(starts[i]) + " to " +
                        Day(starts[next - 1]);
        }
        return text.empty() ? "never" : text;
    }

private:
    void Play(const std::string& step) {
        std::vector<std::string> words = Split(step, ' ');
        ASSERT_GE(words.size(), 3u) << step;
        const time_t moment = Moment(words[0], words[1]);
        ASSERT_GE(moment, clock.WallSeconds()) << step;
        clock.Advance(moment - clock.WallSeconds());
        const std::string verb = words[2];
        words.erase(words.begin(), words.begin() + 3);
        if (verb == "add")
            Add(words);
        else if (verb == "asleep")
            clock.Sleep(Moment(words.at(1), words.at(2)) - clock.WallSeconds());
        else if (verb == "clock")
            clock.SetWall(Moment(words.at(0), words.at(1)));
        else if (verb == "zone")
            SetZone(words.at(0));
        else if (verb == "stop")
            helper.reset();
        else if (verb == "start" || verb == "restart")
            Start();
        else
            ASSERT_EQ(verb, "end") << step;
    }

    // once 2026-01-05 21:00 | daily 21:00 | weekly mon,fri 21:00
    void Add(const std::vector<std::string>& words) {
        isWeekly = words.at(0) == "weekly";
        const bool isOnce = words.at(0) == "once";
        const std::string date = isOnce ? words.at(1) : Text(LocalFields(clock.WallSeconds()), "%F");
        const auto text = [](const char* value) { return reinterpret_cast<long>(value); };
        LList<LXPCDataListable> items;
        const auto put = [&](const char* key, LXPCDataType type, long value) {
            items.Add(CreateXPCData({key, type}, value, 0));
        };
        put(kKeyNewSkedWeekdayMask, xpcDataUInt64, isWeekly ? Mask(words.at(1)) : 0);
        put(kKeyNewSkedWeekly, xpcDataBool, isWeekly);
        put(kKeyNewSkedDaily, xpcDataBool, !isWeekly && !isOnce);
        put(kKeyNewSkedTime, xpcDataDate, Moment(date, words.back()));
        put(kKeyNewSkedName, xpcDataString, text("schedule"));
        put(kKeyMainAppBundlePath, xpcDataString, text(application.c_str()));
        put(kKeyMainAppBundleId, xpcDataString, text(kMainAppBundleId));
        helper->EvMessageReceived(0, 0, items);
    }

    void Start() {
        helper.reset();
        platform::SetStandardUserDefaults(folder.Join("store.plist"));  // read anew, as a new process does
        helper = std::make_unique<Helper>(starts);
    }
    void SetZone(const std::string& name) {
        ASSERT_TRUE(std::filesystem::exists("/usr/share/zoneinfo/" + name)) << name;
        zone.reset();
        zone.emplace(name.c_str());
    }
    std::string Day(const std::tm& start) const { return Text(start, isWeekly ? "%a %F" : "%F"); }
    bool Follows(const std::tm& start, const std::tm& next) const {
        const long days = DayNumber(next) - DayNumber(start);
        return Text(start, "%T") == Text(next, "%T") && days >= 1 && days <= (isWeekly ? 7 : 1);
    }

    const TempFolder folder;
    const std::string application = folder.MakeFolder("Quillo.app");
    std::optional<TimeZone> zone;
    platform::VirtualClock clock{0};
    bool isWeekly = false;
    std::vector<std::tm> starts;
    std::unique_ptr<Helper> helper;
};

}  // namespace

TEST(Timing, TheTableOfTheDocumentationHolds) {
    std::ifstream page(SOURCE_FOLDER "/docs/timing.md");
    int rows = 0;
    for (std::string line; std::getline(page, line);) {
        const std::vector<std::string> cells = Split(line, '|');
        if (cells.size() != 5 || !cells[2].starts_with('`')) continue;
        rows++;
        const Story story(cells[2].substr(1, cells[2].size() - 2));
        EXPECT_EQ(story.Starts(), cells[3]) << cells[1];
    }
    EXPECT_GE(rows, 40) << "the table isn't where it was";
}
