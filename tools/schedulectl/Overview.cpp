#include "Overview.h"

#include "app/LScheduleHelperKeys.h"
#include "common/ScheduleText.h"

#include <algorithm>
#include <tuple>

namespace tools {

namespace {

std::string JoinedNotes(const ScheduleView& view) {
    std::string text;
    for (const std::string& note : view.notes) text += (text.empty() ? "" : "; ") + note;
    return text;
}

bool ComesLater(const ScheduleView& a, const ScheduleView& b) {
    const auto order = [](const ScheduleView& view) {
        return std::tuple(view.forecast.none != NoStart::None, view.forecast.launch,
                          std::string_view(view.schedule.name));
    };
    return order(a) < order(b);
}

// Without its date, where that is the start's, too.
std::string LaunchText(const Forecast& forecast) {
    const std::string launch = LocalTimeText(forecast.launch), start = LocalTimeText(forecast.Start());
    constexpr size_t dateLength = 11;
    return launch.compare(0, dateLength, start, 0, dateLength) == 0 ? launch.substr(dateLength) : launch;
}

std::string ShiftNote(const ScheduleView& view, time_t planned, time_t now) {
    const long shift = view.forecast.shiftSeconds;
    if (shift == 0) return "";
    const std::string asked = LocalTimeText(view.schedule.Start()).substr(11);
    // Planned now it would come in time: then it is a change in the past that moved it.
    const bool isPast = NextStart(view.schedule, now, now).shiftSeconds == 0 && planned != now;
    return ShiftText(shift) +
           (isPast ? " since summer time or the zone changed (unless added since): asked for "
                   : " by the change of summer time: asked for ") +
           asked + (isPast ? "; schedulectl restart mends it" : "");
}

}  // namespace

std::optional<Overview> Overview::Now() {
    Overview overview(time(nullptr));
    auto stored = ReadStore(StorePath());
    if (!stored) return {};
    overview.views.reserve(stored->size());
    for (const StoredSchedule& schedule : *stored)
        overview.views.push_back(overview.View(schedule, overview.Planned()));
    std::sort(overview.views.begin(), overview.views.end(), ComesLater);
    return overview;
}

ScheduleView Overview::View(const StoredSchedule& schedule, time_t planned) {
    ScheduleView view{schedule, NextStart(schedule, planned, now), {}, false};
    auto bundle = bundles.find(schedule.appPath);
    if (bundle == bundles.end()) bundle = bundles.emplace(schedule.appPath, LookAtBundle(schedule.appPath)).first;
    const std::string fault = WhyNotStarted(bundle->second);
    view.isStarted = view.forecast.none == NoStart::None && fault.empty();
    if (view.forecast.none == NoStart::Over) view.notes.emplace_back("its time is over");
    if (view.forecast.none == NoStart::NoWeekday) view.notes.emplace_back("no weekday: it never starts");
    if (!fault.empty()) view.notes.push_back("starts nothing: " + fault);
    if (view.forecast.none == NoStart::None) {
        if (const std::string note = ShiftNote(view, planned, now); !note.empty()) view.notes.push_back(note);
        if (StartsAlmostADayLate(schedule))
            view.notes.emplace_back(
                "almost a day late: in the first ten seconds of a day the lead falls on the day before");
    }
    return view;
}

const ScheduleView* Overview::Next() const {
    const auto next = std::find_if(views.begin(), views.end(), [](const ScheduleView& view) { return view.isStarted; });
    return next == views.end() ? nullptr : &*next;
}

namespace {

std::vector<Cell> ScheduleCells(const ScheduleView& view, time_t now, bool hasNotes) {
    const StoredSchedule& schedule = view.schedule;
    const bool comes = view.forecast.none == NoStart::None;
    const bool hasMoment = view.forecast.none != NoStart::NoWeekday;
    const Tone tone = comes ? Tone::Plain : Tone::Faint;
    std::vector<Cell> cells;
    cells.reserve(7);
    cells.push_back({hasMoment ? LocalTimeText(view.forecast.Start()) : "-", tone});
    cells.push_back({hasMoment ? LaunchText(view.forecast) : "-", tone});
    cells.push_back({comes ? DurationText(view.forecast.launch - now) : "-", view.isStarted ? Tone::Good : Tone::Bad});
    cells.push_back({RepeatText(schedule.daily, schedule.weekly, schedule.weekdays), tone});
    cells.push_back({schedule.name, tone});
    cells.push_back({schedule.appPath, Tone::Faint});
    if (hasNotes) cells.push_back({JoinedNotes(view), Tone::Attention});
    return cells;
}

}  // namespace

std::vector<std::string> ScheduleHeads(const std::vector<ScheduleView>& views) {
    std::vector<std::string> heads = {"START", "LAUNCH", "IN", "REPEAT", "NAME", "APPLICATION"};
    if (std::any_of(views.begin(), views.end(), [](const ScheduleView& view) { return !view.notes.empty(); }))
        heads.emplace_back("NOTE");
    return heads;
}

std::vector<Row> ScheduleRows(const std::vector<ScheduleView>& views, time_t now, bool asRecords) {
    const bool hasNotes = ScheduleHeads(views).back() == "NOTE";
    std::vector<Row> rows(views.size());
    for (size_t i = 0; i < views.size(); i++)
        if (asRecords)
            rows[i].record = ScheduleRecord(views[i], now);
        else
            rows[i].cells = ScheduleCells(views[i], now, hasNotes);
    return rows;
}

Record ScheduleRecord(const ScheduleView& view, time_t now) {
    const StoredSchedule& schedule = view.schedule;
    Record record = {{"name", schedule.name},
                     {"bundleId", schedule.bundleId},
                     {"application", schedule.appPath},
                     {"start", int64_t{schedule.Start()}},
                     {"launch", int64_t{schedule.launch}},
                     {"startText", LocalTimeText(schedule.Start())},
                     {"daily", schedule.daily},
                     {"weekly", schedule.weekly},
                     {"weekdays", WeekdayText(schedule.weekdays)},
                     {"notes", view.notes},
                     {"starts", view.isStarted}};
    if (view.forecast.none == NoStart::None) {
        record.emplace_back("nextStart", int64_t{view.forecast.Start()});
        record.emplace_back("nextLaunch", int64_t{view.forecast.launch});
        record.emplace_back("nextStartText", LocalTimeText(view.forecast.Start()));
        record.emplace_back("inSeconds", int64_t{view.forecast.launch - now});
        record.emplace_back("shiftSeconds", int64_t{view.forecast.shiftSeconds});
    }
    return record;
}

}  // namespace tools
