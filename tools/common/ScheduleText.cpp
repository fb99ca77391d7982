#include "ScheduleText.h"

#include <Foundation/Foundation.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

namespace tools {

namespace {

constexpr int secondsPerMinute = 60;
constexpr int secondsPerHour = 3600;
constexpr time_t twoHours = time_t{2} * secondsPerHour;
constexpr time_t secondsPerDay = 86'400;
constexpr size_t maxNameBytes = 259;
constexpr std::array<std::string_view, 7> dayNames = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};

// Reads a text from its front; every step says whether it found what it was asked for.
class Scanner {
public:
    explicit Scanner(std::string_view text) : rest(text) {}

    bool AtEnd() const { return rest.empty(); }
    bool Take(char c) {
        if (rest.empty() || rest.front() != c) return false;
        rest.remove_prefix(1);
        return true;
    }
    bool Take(std::string_view text) {
        if (!rest.starts_with(text)) return false;
        rest.remove_prefix(text.size());
        return true;
    }
    // Exactly `digits` digits, with a value from `low` to `high`.
    bool Number(size_t digits, int low, int high, int& value) {
        if (rest.size() < digits) return false;
        const char* end = rest.data() + digits;
        for (const char* p = rest.data(); p != end; ++p)
            if (*p < '0' || *p > '9') return false;
        std::from_chars(rest.data(), end, value);
        rest.remove_prefix(digits);
        return value >= low && value <= high;
    }
    // A run of digits that fits.
    bool Count(time_t& value) {
        if (rest.empty() || rest.front() == '-') return false;
        const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
        if (error != std::errc{}) return false;
        rest.remove_prefix(static_cast<size_t>(end - rest.data()));
        return true;
    }

private:
    std::string_view rest;
};

// hh:mm[:ss]
bool ScanTimeOfDay(Scanner& scanner, tm& fields) {
    if (!scanner.Number(2, 0, 23, fields.tm_hour) || !scanner.Take(':') || !scanner.Number(2, 0, 59, fields.tm_min))
        return false;
    fields.tm_sec = 0;
    return !scanner.Take(':') || scanner.Number(2, 0, 59, fields.tm_sec);
}

// yyyy-mm-ddT, with a blank for the T, too
bool ScanDate(Scanner& scanner, tm& fields) {
    int year = 0;
    int month = 0;
    if (!scanner.Number(4, 1970, 9999, year) || !scanner.Take('-') || !scanner.Number(2, 1, 12, month) ||
        !scanner.Take('-') || !scanner.Number(2, 1, 31, fields.tm_mday))
        return false;
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    return scanner.Take('T') || scanner.Take(' ');
}

bool SameFields(const tm& a, const tm& b) {
    return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday && a.tm_hour == b.tm_hour &&
           a.tm_min == b.tm_min && a.tm_sec == b.tm_sec;
}

// The moments, in order, at which local clocks show these fields: none, one, or two where clocks are put back.
std::vector<time_t> LocalMoments(const tm& fields) {
    std::vector<time_t> moments;
    for (const int summerTime : {1, 0}) {
        tm asked = fields;
        asked.tm_isdst = summerTime;
        const time_t moment = mktime(&asked);
        tm shown{};
        if (!localtime_r(&moment, &shown) || !SameFields(shown, fields)) continue;
        if (moments.empty() || moments.back() != moment) moments.push_back(moment);
    }
    return moments;
}

// Z, +hh:mm or -hh:mm, as the seconds that the clock is ahead of UTC.
bool ScanOffset(Scanner& scanner, int& aheadSeconds) {
    aheadSeconds = 0;
    if (scanner.Take('Z')) return true;
    const int sign = scanner.Take('+') ? 1 : scanner.Take('-') ? -1 : 0;
    int hours = 0;
    int minutes = 0;
    if (sign == 0 || !scanner.Number(2, 0, 23, hours) || !scanner.Take(':') || !scanner.Number(2, 0, 59, minutes))
        return false;
    aheadSeconds = sign * (hours * secondsPerHour + minutes * secondsPerMinute);
    return true;
}

std::optional<time_t> ParseDateAndTime(std::string_view text) {
    Scanner scanner(text);
    tm fields{};
    if (!ScanDate(scanner, fields) || !ScanTimeOfDay(scanner, fields)) return {};

    if (scanner.AtEnd()) {
        const std::vector<time_t> moments = LocalMoments(fields);
        return moments.empty() ? std::nullopt : std::optional(moments.front());
    }
    int aheadSeconds = 0;
    if (!ScanOffset(scanner, aheadSeconds) || !scanner.AtEnd()) return {};
    tm asked = fields;
    const time_t moment = timegm(&asked);
    if (!SameFields(asked, fields)) return {};  // the 30th of February
    return moment - aheadSeconds;
}

std::optional<time_t> ParseTimeOfDay(std::string_view text, time_t now) {
    Scanner scanner(text);
    tm wanted{};
    tm today{};
    if (!ScanTimeOfDay(scanner, wanted) || !scanner.AtEnd() || !localtime_r(&now, &today)) return {};
    // Two days on is as far as it can be: when clocks are put forward over it tomorrow.
    for (int day = 0; day <= 2; ++day) {
        tm noon = today;
        noon.tm_mday += day;
        noon.tm_hour = 12;
        noon.tm_isdst = -1;
        mktime(&noon);  // brings the date into its month
        noon.tm_hour = wanted.tm_hour;
        noon.tm_min = wanted.tm_min;
        noon.tm_sec = wanted.tm_sec;
        for (const time_t moment : LocalMoments(noon))
            if (moment > now) return moment;
    }
    return {};
}

std::optional<time_t> ParseDelay(std::string_view text, time_t now) {
    const std::optional<time_t> delay = ParseDuration(text.substr(1));
    return delay ? std::optional(now + *delay) : std::nullopt;
}

char LowerAscii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

std::optional<time_t> ParseStartTime(std::string_view text, time_t now) {
    if (text.starts_with('+')) return ParseDelay(text, now);
    if (text.size() > 2 && text[2] == ':') return ParseTimeOfDay(text, now);
    return ParseDateAndTime(text);
}

std::string NearestPossible(std::string_view text, time_t now) {
    tm asked{};
    Scanner scanner(text);
    const bool isTimeOfDay = text.size() > 2 && text[2] == ':';
    if (isTimeOfDay ? !localtime_r(&now, &asked) : !ScanDate(scanner, asked)) return "";
    if (!ScanTimeOfDay(scanner, asked) || !scanner.AtEnd()) return "";
    asked.tm_isdst = -1;
    tm carried = asked;
    time_t moment = mktime(&carried);  // carries the 30th of February into March; a skipped time lands beside its gap
    if (carried.tm_hour == asked.tm_hour && carried.tm_min == asked.tm_min) return LocalTimeText(moment);
    const auto ahead = [](time_t at) {
        tm shown{};
        return localtime_r(&at, &shown) ? shown.tm_gmtoff : 0;
    };
    const time_t last = moment + twoHours;
    for (moment -= twoHours; moment < last; moment++)
        if (ahead(moment) != ahead(moment - 1)) return LocalTimeText(moment);
    return "";
}

std::optional<uint8_t> ParseWeekdays(std::string_view text) {
    unsigned mask = 0;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(',', begin), text.size());
        std::string word;
        for (const char c : text.substr(begin, end - begin)) word += LowerAscii(c);
        const auto day = std::find(dayNames.begin(), dayNames.end(), word);
        if (day == dayNames.end()) return {};
        mask |= 1U << (day - dayNames.begin());
        begin = end + 1;
    }
    return static_cast<uint8_t>(mask);
}

std::string WeekdayText(uint8_t mask) {
    std::string text;
    for (size_t i = 1; i <= dayNames.size(); ++i) {
        const size_t day = i % dayNames.size();
        if ((mask >> day & 1) == 0) continue;
        if (!text.empty()) text += ',';
        text += dayNames[day];
    }
    return text;
}

std::string LocalTimeText(time_t moment) {
    tm fields{};
    std::array<char, 64> text{};
    if (!localtime_r(&moment, &fields)) return std::to_string(moment);
    return {text.data(), strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &fields)};
}

std::optional<time_t> ParseDuration(std::string_view text) {
    constexpr time_t maxSeconds = time_t{100} * 366 * secondsPerDay;
    Scanner scanner(text);
    time_t count = 0;
    if (!scanner.Count(count)) return {};
    const time_t unit = scanner.Take("s")     ? 1
                        : scanner.Take("min") ? secondsPerMinute
                        : scanner.Take("h")   ? secondsPerHour
                        : scanner.Take("d")   ? secondsPerDay
                        : scanner.Take("w")   ? 7 * secondsPerDay
                                              : 0;
    if (unit == 0 || !scanner.AtEnd() || count > maxSeconds / unit) return {};
    return count * unit;
}

std::string DurationText(time_t seconds) {
    constexpr std::pair<time_t, const char*> units[] = {
        {secondsPerDay, " d"}, {secondsPerHour, " h"}, {secondsPerMinute, " min"}, {1, " s"}};
    if (seconds < 0)
        return "-" + DurationText(seconds == std::numeric_limits<time_t>::min() ? -(seconds + 1) : -seconds);
    for (size_t i = 0; i + 1 < std::size(units); i++) {
        const auto& [large, largeName] = units[i];
        const auto& [small, smallName] = units[i + 1];
        if (seconds < large) continue;
        const std::string text = std::to_string(seconds / large) + largeName;
        const time_t rest = seconds % large / small;
        return rest == 0 ? text : text + " " + std::to_string(rest) + smallName;
    }
    return std::to_string(seconds) + " s";
}

std::string ShiftText(long seconds) {
    return (seconds < 0 ? "" : "+") + DurationText(seconds);
}

std::string RepeatText(bool daily, bool weekly, uint8_t weekdays) {
    if (daily) return "daily";
    if (!weekly) return "once";
    return weekdays == 0 ? "never" : WeekdayText(weekdays);
}

std::string NameFault(std::string_view name) {
    if (name.empty()) return "a schedule needs a name";
    if (name.size() > maxNameBytes)
        return "the name has " + std::to_string(name.size()) + " bytes, " + std::to_string(maxNameBytes) +
               " is the most";
    if (!NSString(name)) return "the name is not valid UTF-8";
    return "";
}

bool HasControls(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; });
}

}  // namespace tools
