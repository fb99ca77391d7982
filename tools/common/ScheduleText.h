// What people write for a schedule's start, its weekdays and its name. Pure functions: `now` is handed in; the local
// time zone is the process's (TZ). Any thread.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace tools {

// The moment that `text` names, in seconds since 1970-01-01 00:00:00 UTC; none when it names none. Forms:
//   2026-11-30T21:05[:30], with a blank for the T too, local time; with Z or +hh:mm or -hh:mm behind it, of that offset
//   21:05[:30]    the next such local time after `now`
//   +90s +15min +2h    from `now`
// A local time that a change of clocks leaves out is none; of one that comes twice, the first after `now` (with a date:
// the first) is meant.
std::optional<time_t> ParseStartTime(std::string_view text, time_t now);

// For a date that there isn't (the 30th of February) or a local time that a change of clocks leaves out: the first
// moment after it that there is, as ParseStartTime would take it; "" for any other text.
std::string NearestPossible(std::string_view text, time_t now);

// "mon,wed" in any case and order: bit n stands for weekday n, 0 = Sunday. None for an unknown day or no day at all.
std::optional<uint8_t> ParseWeekdays(std::string_view text);

// The reverse of ParseWeekdays, from Monday on; "" for no day.
std::string WeekdayText(uint8_t mask);

// "2026-11-30 21:05:30", local time.
std::string LocalTimeText(time_t moment);

// A length of time: "30d", "2w", "12h", "90min", "45s", in seconds; none for any other text, and for more
// than a hundred years.
std::optional<time_t> ParseDuration(std::string_view text);

// The two largest units that it takes: "3 d 4 h", "2 h 5 min", "1 min 30 s", "0 s"; with "-" in front when negative.
std::string DurationText(time_t seconds);

// "+1 h", "-30 min".
std::string ShiftText(long seconds);

// "daily", "mon,wed", "once", and "never" for a weekly schedule without a day.
std::string RepeatText(bool daily, bool weekly, uint8_t weekdays);

// Why `name` can't be a schedule's name, as a sentence for people; "" when it can. Names are UTF-8 of 1 to 259 bytes: a
// longer one would be cut, and one that isn't UTF-8 is not stored.
std::string NameFault(std::string_view name);

// XML has no place for some control characters: other readers of the store would take the whole file for damaged.
bool HasControls(std::string_view text);

}  // namespace tools
