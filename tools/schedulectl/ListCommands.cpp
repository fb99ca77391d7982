#include "CommandParts.h"
#include "common/ScheduleText.h"

#include <algorithm>

namespace tools {

namespace {

// A schedule that nobody will start is no news to programs, but to people.
void WarnWithoutHelper(const Overview& overview, const Output& output) {
    if (overview.Schedules().empty()) output.Warning("nothing is stored (schedulectl add)");
    if (!overview.Helper() && !overview.Schedules().empty())
        output.Warning("no helper runs: nothing of this will be started (schedulectl start)");
}

std::vector<std::string> NamesOf(const Overview& overview) {
    std::vector<std::string> names;
    names.reserve(overview.Schedules().size());
    for (const ScheduleView& view : overview.Schedules()) names.push_back(view.schedule.name);
    return names;
}

std::vector<std::pair<std::string, Cell>> SheetOf(const ScheduleView& view, time_t now) {
    const StoredSchedule& schedule = view.schedule;
    std::vector<std::pair<std::string, Cell>> lines = {
        {"name", {schedule.name}},
        {"repeat", {RepeatText(schedule.daily, schedule.weekly, schedule.weekdays)}},
        {"asked for", {LocalTimeText(schedule.Start())}}};
    if (view.forecast.none == NoStart::None) {
        lines.push_back({"next start", {LocalTimeText(view.forecast.Start())}});
        lines.push_back({"launch",
                         {LocalTimeText(view.forecast.launch) + ", in " + DurationText(view.forecast.launch - now),
                          view.isStarted ? Tone::Good : Tone::Bad}});
    }
    lines.push_back({"application", {schedule.appPath}});
    lines.push_back({"identifier", {schedule.bundleId}});
    for (const std::string& note : view.notes) lines.push_back({"note", {note, Tone::Attention}});
    return lines;
}

}  // namespace

int RunList(const Options& options) {
    const Output output(options.style);
    const auto overview = Overview::Now();
    if (!overview) return UnreadableStore(output);
    if (options.namesOnly) {
        output.Names(NamesOf(*overview));
        return exitDone;
    }
    const auto& views = overview->Schedules();
    output.Table(ScheduleHeads(views), ScheduleRows(views, overview->Moment(), output.IsJson()), "schedules",
                 {{"helperRuns", overview->Helper().has_value()}});
    WarnWithoutHelper(*overview, output);
    return exitDone;
}

int RunNext(const Options& options) {
    const Output output(options.style);
    const auto overview = Overview::Now();
    if (!overview) return UnreadableStore(output);
    const ScheduleView* const next = overview->Next();
    if (!next) return output.Error(exitNotFound, "nothing will be started");
    Record record = ScheduleRecord(*next, overview->Moment());
    record.emplace_back("helperRuns", overview->Helper().has_value());
    output.Answer(next->schedule.name + " starts at " + LocalTimeText(next->forecast.Start()) +
                      ", its application at " + LocalTimeText(next->forecast.launch) + ", in " +
                      DurationText(next->forecast.launch - overview->Moment()),
                  record);
    WarnWithoutHelper(*overview, output);
    return exitDone;
}

int RunShow(const Options& options) {
    const Output output(options.style);
    const auto overview = Overview::Now();
    if (!overview) return UnreadableStore(output);
    std::vector<StoredSchedule> stored;
    for (const ScheduleView& view : overview->Schedules()) stored.push_back(view.schedule);
    ExitStatus status = exitDone;
    const auto found = FindNamed(stored, options.schedule.name, options, output, status);
    if (!found) return status;
    const auto view = std::find_if(overview->Schedules().begin(), overview->Schedules().end(),
                                   [&](const ScheduleView& one) { return one.schedule == *found; });
    output.Sheet(SheetOf(*view, overview->Moment()), ScheduleRecord(*view, overview->Moment()));
    WarnWithoutHelper(*overview, output);
    return exitDone;
}

}  // namespace tools
