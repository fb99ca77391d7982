#include "datetime/LDateTime.h"

#include <bsd/wallclock.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

static_assert(sizeof(long) == sizeof(time_t), "points in time are handed to the system's calendar as they are");

const char* const LDateTime::szWeekDays[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const LDateTime::szMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
const char* const LDateTime::szMonthsLong[12] = {"January", "February", "March",     "April",   "May",      "June",
                                                 "July",    "August",   "September", "October", "November", "December"};

namespace {

constexpr long kNoCount = -1;

// Two-digit years belong to 1970 to 2069; what lies between them and 1900 is taken as years since 1900.
int YearsSince1900(int year) {
    if (year <= 69) return year + 100;
    return year < 1900 ? year : year - 1900;
}

long CountOf(std::tm fields) {
    fields.tm_isdst = -1;
    return std::mktime(&fields);
}

}  // namespace

bool LDateTime::GetLocalFields(long t, std::tm& fields) {
    if (::localtime_r(&t, &fields)) return true;
    fields = {};  // the library leaves them half filled
    return false;
}

long LDateTime::SetDateTime(long& t, int year, int month, int day, int hour, int minute, int second) {
    if (month == INT_MIN) return kNoCount;  // has no number counted from 0
    std::tm fields{};
    fields.tm_year = YearsSince1900(year);
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    const long count = CountOf(fields);
    if (count != kNoCount) t = count;
    return count;
}

int LDateTime::GetNumberOfDaysInMonth(int year, int month) {
    static constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12) return 0;
    return kDays[month - 1] + (month == 2 && IsLeapYear(year) ? 1 : 0);
}

bool LDateTime::IsLeapYear(int year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

LDayTime LDateTime::GetDayTime() const {
    if (!seconds) return LDayTime();
    std::tm fields;
    GetLocalFields(seconds, fields);
    return LDayTime(fields.tm_hour * 3600 + fields.tm_min * 60 + fields.tm_sec);
}

long LDateTime::SetDayTime(LDayTime dayTime) {
    if (!seconds) seconds = wallclock_time();
    std::tm fields;
    if (!GetLocalFields(seconds, fields)) return kNoCount;
    const int32_t d = dayTime.Seconds();
    fields.tm_hour = d / 3600;
    fields.tm_min = d / 60 % 60;
    fields.tm_sec = d % 60;
    const long count = CountOf(fields);
    if (count != kNoCount) seconds = count;
    return count;
}

LWeekDay LDateTime::GetWeekDay() const {
    std::tm fields;
    if (!GetLocalFields(seconds, fields)) return LWeekDay();
    return LWeekDay(static_cast<uint8_t>(1u << fields.tm_wday));
}

LDateTime LDateTime::AdjustByMonths(int months) const {
    std::tm fields;
    if (!GetLocalFields(seconds, fields)) return LDateTime();
    const int64_t index = int64_t{fields.tm_mon} + months;
    const int64_t yearsOn = index >= 0 ? index / 12 : -((11 - index) / 12);
    const int64_t year = int64_t{fields.tm_year} + 1900 + yearsOn;
    if (year < 1900 || year > INT_MAX) return LDateTime();  // SetDateTime would read a smaller year as another one
    const int month = static_cast<int>(index - 12 * yearsOn) + 1;
    const int day = std::min(fields.tm_mday, GetNumberOfDaysInMonth(static_cast<int>(year), month));
    long t = 0;
    SetDateTime(t, static_cast<int>(year), month, day, fields.tm_hour, fields.tm_min, fields.tm_sec);
    return LDateTime(t);
}

bool LDateTime::TestScheduleDetails(LDateTime now, LDayTime nowTime, LWeekDay nowDay, LDateTime startDate,
                                    LDateTime endDate, LDayTime startTime, LDayTime endTime, LWeekDay days) {
    if (startDate > now) return false;
    if (endDate.seconds > 0 && endDate <= now) return false;
    const bool started = nowTime >= startTime;
    const bool ended = nowTime >= endTime;
    const bool inPeriod = startTime <= endTime ? started && !ended : started || !ended;
    return inPeriod && (days.Mask() & nowDay.Mask()) != 0;
}

LDateTime LDateTime::GetBuildDate() {
    return GetDateFromBuildText(__DATE__);
}

LDateTime LDateTime::GetDateFromBuildText(const char* text) {
    const std::string_view date = text ? text : "";
    if (date.size() < 11) return LDateTime();
    const auto numberAt = [date](size_t start, size_t length) {
        return static_cast<int>(std::strtol(std::string(date.substr(start, length)).c_str(), nullptr, 10));
    };
    const auto* const month = std::find(std::begin(szMonths), std::end(szMonths), date.substr(0, 3));
    const int monthNumber = month == std::end(szMonths) ? 0 : static_cast<int>(month - szMonths) + 1;
    long t = 0;
    SetDateTime(t, numberAt(date.size() - 4, 4), monthNumber, numberAt(4, 2), 0, 0, 0);
    return LDateTime(t);
}
