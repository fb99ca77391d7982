#include "ScheduleFile.h"

#include "CommandParts.h"
#include "app/LScheduleHelperKeys.h"
#include "common/ScheduleText.h"

#include <libical/ical.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <stdexcept>
#include <string_view>

namespace tools {

namespace {

constexpr const char* applicationProperty = "X-SCHEDULEHELPER-APPLICATION";
constexpr const char* identifierProperty = "X-SCHEDULEHELPER-BUNDLE-ID";

// The parser drops blanks at the ends of a text: such a name comes a second time with them as %20.
constexpr const char* nameProperty = "X-SCHEDULEHELPER-NAME";

using Component = std::unique_ptr<icalcomponent, decltype(&icalcomponent_free)>;

Component Owned(icalcomponent* component) {
    return {component, icalcomponent_free};
}

[[noreturn]] void Refuse(const std::string& why) {
    throw std::invalid_argument(why);
}

std::string Replaced(std::string text, std::string_view what, std::string_view by) {
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
    return text;
}

std::string Escaped(const std::string& text) {
    return Replaced(Replaced(text, "%", "%25"), " ", "%20");
}

std::string Unescaped(const std::string& text) {
    return Replaced(Replaced(text, "%20", " "), "%25", "%");
}

tm LocalFields(time_t moment) {
    tm fields{};
    localtime_r(&moment, &fields);
    return fields;
}

std::string LocalText(const icaltimetype& time) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d", time.year, time.month, time.day, time.hour,
                  time.minute, time.second);
    return text.data();
}

// UTC has many names.
std::string Canonical(const std::string& zone) {
    for (const char* name : {"Etc/UTC", "UTC0", "UCT", "Etc/UCT", "Zulu", "Etc/Zulu", "Universal", "Etc/Universal"})
        if (zone == name) return "UTC";
    return zone;
}

// The zone that local time is in, as calendars name it; "" when it has no name.
std::string LocalZone() {
    if (const char* zone = std::getenv("TZ")) return !*zone ? "UTC" : Canonical(*zone == ':' ? zone + 1 : zone);
    std::array<char, 4096> target{};
    const char* const file = realpath("/etc/localtime", target.data());
    const std::string_view path = file ? file : "";
    constexpr std::string_view folder = "/zoneinfo/";
    const size_t found = path.find(folder);
    return found == std::string_view::npos ? "" : Canonical(std::string(path.substr(found + folder.size())));
}

// A time of `zone` as a moment. The library takes the 30th of February, and what a change of clocks leaves out, for
// later moments.
time_t MomentIn(const icaltimetype& time, icaltimezone* zone) {
    const time_t moment = icaltime_as_timet_with_zone(time, zone);
    const icaltimetype back = icaltime_from_timet_with_zone(moment, 0, zone);
    if (LocalText(back) != LocalText(time)) Refuse("there is no " + LocalText(time) + " in its zone");
    return moment;
}

// The moment of the event's start; `zone` is what it is given in: "" for floating, which is local time.
time_t StartOf(icalcomponent* calendar, icalproperty* property, std::string& zone) {
    icaltimetype time = icalproperty_get_dtstart(property);
    if (icaltime_is_null_time(time) || !icaltime_is_valid_time(time)) Refuse("its DTSTART is no time");
    if (time.is_date) Refuse("it is a day, without a time");
    if (icaltime_is_utc(time)) {
        zone = LocalZone() == "UTC" ? "" : "UTC";
        return MomentIn(time, icaltimezone_get_utc_timezone());
    }
    if (const icalparameter* name = icalproperty_get_first_parameter(property, ICAL_TZID_PARAMETER))
        zone = Canonical(icalparameter_get_tzid(name));
    if (zone.empty() || zone == LocalZone()) {
        zone.clear();
        const auto moment = ParseStartTime(LocalText(time), 0);
        if (!moment) Refuse("there is no " + LocalText(time) + " here");
        return *moment;
    }
    icaltimezone* known = icalcomponent_get_timezone(calendar, zone.c_str());
    if (!known) known = icaltimezone_get_builtin_timezone(zone.c_str());
    if (!known) Refuse("the zone " + zone + " is not known");
    return MomentIn(time, known);
}

// The first start of what repeats that the helper can still make, by the clock on the wall: its timers miss that one
// where a change of summer time lies before it, and a calendar knows nothing of them.
time_t FirstStart(const NewSchedule& schedule, time_t now) {
    constexpr int kDaysOn = 15;  // two weeks, where the first one falls into the gap of a change
    const tm asked = LocalFields(schedule.start), today = LocalFields(now);
    for (int day = 0; day < kDaysOn; day++) {
        tm fields = asked;
        fields.tm_year = today.tm_year;
        fields.tm_mon = today.tm_mon;
        fields.tm_mday = today.tm_mday + day;
        fields.tm_isdst = -1;
        const time_t moment = mktime(&fields);
        const bool isDay = schedule.daily || (schedule.weekdays >> fields.tm_wday & 1) != 0;
        const bool isTime = fields.tm_hour == asked.tm_hour && fields.tm_min == asked.tm_min;
        if (isDay && isTime && moment > now + kLaunchLeadSeconds) return moment;
    }
    return schedule.start;
}

bool IsUnset(const short* list) {
    return list[0] == ICAL_RECURRENCE_ARRAY_MAX;
}

uint8_t DaysOf(const icalrecurrencetype& rule) {
    unsigned mask = 0;
    for (size_t i = 0; i < ICAL_BY_DAY_SIZE && rule.by_day[i] != ICAL_RECURRENCE_ARRAY_MAX; i++) {
        if (icalrecurrencetype_day_position(rule.by_day[i]) != 0) Refuse("its RRULE counts weekdays");
        mask |= 1U << (icalrecurrencetype_day_day_of_week(rule.by_day[i]) - ICAL_SUNDAY_WEEKDAY);
    }
    return static_cast<uint8_t>(mask);
}

void TakeRule(const icalrecurrencetype& rule, NewSchedule& schedule) {
    if (rule.freq != ICAL_DAILY_RECURRENCE && rule.freq != ICAL_WEEKLY_RECURRENCE)
        Refuse("its RRULE is neither DAILY nor WEEKLY");
    if (rule.interval != 1) Refuse("its RRULE leaves days or weeks out (INTERVAL)");
    if (rule.count != 0 || !icaltime_is_null_time(rule.until)) Refuse("its RRULE ends (COUNT, UNTIL)");
    for (const short* list : {rule.by_second, rule.by_minute, rule.by_hour, rule.by_month_day, rule.by_year_day,
                              rule.by_week_no, rule.by_month, rule.by_set_pos})
        if (!IsUnset(list)) Refuse("its RRULE has more than BYDAY");
    schedule.weekdays = DaysOf(rule);
    schedule.daily = rule.freq == ICAL_DAILY_RECURRENCE && schedule.weekdays == 0;
    schedule.weekly = !schedule.daily;
    if (schedule.weekly && schedule.weekdays == 0)
        schedule.weekdays = static_cast<uint8_t>(1U << LocalFields(schedule.start).tm_wday);
}

std::string ExtraText(icalcomponent* event, const char* name) {
    for (icalproperty* property = icalcomponent_get_first_property(event, ICAL_X_PROPERTY); property;
         property = icalcomponent_get_next_property(event, ICAL_X_PROPERTY))
        if (std::string_view(icalproperty_get_x_name(property)) == name) {
            const char* const text = icalproperty_get_x(property);
            return text ? text : "";
        }
    return "";
}

std::string UidOf(icalcomponent* event) {
    const char* const uid = icalcomponent_get_uid(event);
    return uid ? uid : "";
}

// The events that have single starts moved, by another event of the same UID.
std::set<std::string> MovedEvents(icalcomponent* calendar) {
    std::set<std::string> uids;
    for (icalcomponent* event = icalcomponent_get_first_component(calendar, ICAL_VEVENT_COMPONENT); event;
         event = icalcomponent_get_next_component(calendar, ICAL_VEVENT_COMPONENT))
        if (icalcomponent_get_first_property(event, ICAL_RECURRENCEID_PROPERTY)) uids.insert(UidOf(event));
    uids.erase("");
    return uids;
}

FileSchedule FromEvent(icalcomponent* calendar, icalcomponent* event, const std::set<std::string>& moved, time_t now) {
    if (icalcomponent_get_first_property(event, ICAL_XLICERROR_PROPERTY)) Refuse("a line of it is no iCalendar");
    for (const auto kind :
         {ICAL_EXDATE_PROPERTY, ICAL_RDATE_PROPERTY, ICAL_EXRULE_PROPERTY, ICAL_RECURRENCEID_PROPERTY})
        if (icalcomponent_get_first_property(event, kind)) Refuse("it has exceptions (EXDATE, RDATE, RECURRENCE-ID)");
    if (icalcomponent_get_status(event) == ICAL_STATUS_CANCELLED) Refuse("it is cancelled");
    FileSchedule one;
    const char* const summary = icalcomponent_get_summary(event);
    one.schedule.name = summary ? summary : "";
    if (const std::string name = ExtraText(event, nameProperty); !name.empty()) one.schedule.name = Unescaped(name);
    one.application = {ExtraText(event, identifierProperty), ExtraText(event, applicationProperty)};

    icalproperty* const start = icalcomponent_get_first_property(event, ICAL_DTSTART_PROPERTY);
    if (!start) Refuse("it has no DTSTART");
    std::string zone;
    one.schedule.start = StartOf(calendar, start, zone);
    icalproperty* const rule = icalcomponent_get_first_property(event, ICAL_RRULE_PROPERTY);
    if (!rule) return one;
    if (!zone.empty()) Refuse("it repeats in the zone " + zone + "; the helper repeats in local time only");
    if (icalcomponent_get_next_property(event, ICAL_RRULE_PROPERTY)) Refuse("it has several RRULEs");
    if (moved.contains(UidOf(event))) Refuse("another event moves single starts of it (RECURRENCE-ID)");
    TakeRule(icalproperty_get_rrule(rule), one.schedule);
    const time_t first = FirstStart(one.schedule, now);
    if (one.schedule.start > first)
        Refuse("it begins only at " + LocalTimeText(one.schedule.start) + "; the helper would begin at " +
               LocalTimeText(first));
    return one;
}

// The lines at which events begin, from 1 on: the parser doesn't tell.
std::vector<size_t> EventLines(const std::string& text) {
    std::vector<size_t> lines;
    size_t number = 1;
    for (size_t begin = 0; begin < text.size(); number++) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        if (text.compare(begin, 12, "BEGIN:VEVENT") == 0) lines.push_back(number);
        begin = end + 1;
    }
    return lines;
}

// The first line that the parser would take minutes for; 0: none.
size_t TooLongLine(const std::string& text) {
    constexpr size_t kLongest = size_t{64} * 1024;
    size_t number = 1;
    for (size_t begin = 0; begin < text.size(); number++) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        if (end - begin > kLongest) return number;
        begin = end + 1;
    }
    return 0;
}

std::string Identity(const StoredSchedule& schedule) {
    uint64_t hash = 0xCBF29CE484222325;  // FNV-1a: the same schedule gets the same identity each time
    for (const std::string* text : {&schedule.bundleId, &schedule.appPath, &schedule.name})
        for (const char c : *text + '\n') hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(hash));
    return std::string(text.data()) + "@schedulehelper";
}

icaltimetype FloatingTime(const tm& date, const tm& time) {
    icaltimetype floating = icaltime_null_time();
    floating.year = date.tm_year + 1900;
    floating.month = date.tm_mon + 1;
    floating.day = date.tm_mday;
    floating.hour = time.tm_hour;
    floating.minute = time.tm_min;
    floating.second = time.tm_sec;
    return floating;
}

// "FREQ=WEEKLY;BYDAY=MO,WE"
std::string RuleText(const StoredSchedule& schedule) {
    if (schedule.daily) return "FREQ=DAILY";
    std::string days;
    for (unsigned day = 0; day < 7; day++)
        if (schedule.weekdays >> day & 1)
            days +=
                (days.empty() ? "" : ",") + std::string(icalrecur_weekday_to_string(
                                                static_cast<icalrecurrencetype_weekday>(day + ICAL_SUNDAY_WEEKDAY)));
    return "FREQ=WEEKLY;BYDAY=" + days;
}

void AddExtra(icalcomponent* event, const char* name, const std::string& text) {
    icalproperty* const property = icalproperty_new_x(text.c_str());
    icalproperty_set_x_name(property, name);
    icalcomponent_add_property(event, property);
}

icalcomponent* EventOf(const StoredSchedule& schedule, time_t now) {
    icalcomponent* const event = icalcomponent_new(ICAL_VEVENT_COMPONENT);
    const auto add = [event](icalproperty* property) { icalcomponent_add_property(event, property); };
    add(icalproperty_new_uid(Identity(schedule).c_str()));
    add(icalproperty_new_dtstamp(icaltime_from_timet_with_zone(now, 0, icaltimezone_get_utc_timezone())));
    const size_t first = schedule.name.find_first_not_of(' ');
    add(icalproperty_new_summary(first == std::string::npos ? "-" : schedule.name.c_str()));
    if (schedule.daily || schedule.weekly) {
        // The date of the next one, with the time of day that was asked for.
        const tm date = LocalFields(FirstStart(AsNew(schedule), now));
        add(icalproperty_new_dtstart(FloatingTime(date, LocalFields(schedule.Start()))));
        add(icalproperty_new_rrule(icalrecurrencetype_from_string(RuleText(schedule).c_str())));
    } else {
        add(icalproperty_new_dtstart(
            icaltime_from_timet_with_zone(schedule.Start(), 0, icaltimezone_get_utc_timezone())));
    }
    if (schedule.name.front() == ' ' || schedule.name.back() == ' ')
        AddExtra(event, nameProperty, Escaped(schedule.name));
    AddExtra(event, applicationProperty, schedule.appPath);
    AddExtra(event, identifierProperty, schedule.bundleId);
    return event;
}

}  // namespace

ParsedFile ParseCalendar(const std::string& text, time_t now) {
    ParsedFile parsed;
    if (const size_t line = TooLongLine(text); line != 0) {
        parsed.faults.push_back("line " + std::to_string(line) + " is far too long for a calendar's");
        return parsed;
    }
    icaltimezone_set_tzid_prefix("");
    const Component calendar = Owned(icalparser_parse_string(text.c_str()));
    if (!calendar || icalcomponent_isa(calendar.get()) != ICAL_VCALENDAR_COMPONENT) {
        parsed.faults.emplace_back("the file holds no calendar (VCALENDAR)");
        return parsed;
    }
    if (icalcomponent_get_method(calendar.get()) == ICAL_METHOD_CANCEL) {
        parsed.faults.emplace_back("the calendar cancels its events (METHOD:CANCEL)");
        return parsed;
    }
    const std::vector<size_t> lines = EventLines(text);
    const std::set<std::string> moved = MovedEvents(calendar.get());
    size_t number = 0;
    for (icalcomponent* event = icalcomponent_get_first_component(calendar.get(), ICAL_VEVENT_COMPONENT); event;
         event = icalcomponent_get_next_component(calendar.get(), ICAL_VEVENT_COMPONENT), number++) {
        const std::string where =
            number < lines.size() ? "line " + std::to_string(lines[number]) : "event " + std::to_string(number + 1);
        try {
            parsed.schedules.push_back(FromEvent(calendar.get(), event, moved, now));
            parsed.schedules.back().where = where;
        } catch (const std::invalid_argument& fault) {
            const char* const summary = icalcomponent_get_summary(event);
            parsed.faults.push_back(where + (summary ? " (" + std::string(summary) + ")" : "") + ": " + fault.what());
        }
    }
    if (number == 0 && icalcomponent_count_components(calendar.get(), ICAL_ANY_COMPONENT) > 0)
        parsed.faults.emplace_back("the calendar holds no event (VEVENT)");
    return parsed;
}

std::string CalendarText(const std::vector<StoredSchedule>& schedules, time_t now, std::vector<StoredSchedule>& left) {
    const Component calendar = Owned(icalcomponent_new(ICAL_VCALENDAR_COMPONENT));
    icalcomponent_add_property(calendar.get(), icalproperty_new_version("2.0"));
    icalcomponent_add_property(calendar.get(), icalproperty_new_prodid("-//Tarnwick//schedulectl//EN"));
    for (const StoredSchedule& schedule : schedules)
        if (schedule.weekly && !schedule.daily && schedule.weekdays == 0)
            left.push_back(schedule);
        else
            icalcomponent_add_component(calendar.get(), EventOf(schedule, now));
    char* const text = icalcomponent_as_ical_string_r(calendar.get());
    std::string copy = text ? text : "";
    icalmemory_free_buffer(text);
    return copy;
}

}  // namespace tools
