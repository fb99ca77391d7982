#include "CommandParts.h"
#include "common/Folders.h"
#include "common/ScheduleText.h"

#include <algorithm>
#include <set>
#include <unistd.h>

namespace tools {

namespace {

bool IsOf(const StoredSchedule& schedule, const Application& application) {
    return schedule.bundleId == application.bundleId && schedule.appPath == application.path;
}

// The helper's "delete all" takes along what is stored for an application whose path only begins with this one's.
bool TakesOthersAlong(const std::vector<StoredSchedule>& stored, const Application& application) {
    const std::string prefix = application.bundleId + application.path;
    return std::any_of(stored.begin(), stored.end(), [&](const StoredSchedule& schedule) {
        return !IsOf(schedule, application) &&
               (schedule.bundleId + schedule.appPath + schedule.name).starts_with(prefix);
    });
}

std::string Counted(size_t count) {
    return std::to_string(count) + (count == 1 ? " schedule" : " schedules");
}

// The schedules that the command names; nothing, and `status` says why, when one of them isn't there.
std::optional<std::vector<StoredSchedule>> Chosen(const std::vector<StoredSchedule>& stored, const Options& options,
                                                  const Output& output, ExitStatus& status) {
    std::vector<StoredSchedule> chosen;
    if (options.all) {
        const std::string appPath = options.appPath.empty() ? "" : AbsolutePath(options.appPath);
        for (const StoredSchedule& schedule : stored)
            if ((appPath.empty() || schedule.appPath == appPath) &&
                (options.bundleId.empty() || schedule.bundleId == options.bundleId))
                chosen.push_back(schedule);
        return chosen;
    }
    for (const std::string& name : std::set(options.names.begin(), options.names.end())) {
        auto found = FindNamed(stored, name, options, output, status);
        if (!found) return {};
        chosen.push_back(std::move(*found));
    }
    return chosen;
}

// One request for all of an application where that takes nothing else along, else one for each.
bool DeleteFrom(HelperClient& helper, const std::vector<StoredSchedule>& stored,
                const std::vector<StoredSchedule>& chosen, bool all, uint32_t timeoutMs) {
    std::set<std::string> done;
    for (const StoredSchedule& schedule : chosen) {
        const Application application{schedule.bundleId, schedule.appPath};
        const std::string key = application.bundleId + '\n' + application.path;
        if (done.contains(key)) continue;
        if (all && !TakesOthersAlong(stored, application)) {
            done.insert(key);
            if (!helper.Tell(HelperRequest::DeleteAll(application), timeoutMs)) return false;
        } else if (!helper.Tell(HelperRequest::Delete(application, schedule.name), timeoutMs)) {
            return false;
        }
    }
    return true;
}

}  // namespace

int RunAdd(const Options& options) {
    const Output output(options.style);
    const time_t now = time(nullptr);
    std::string fault;
    const std::optional<NewSchedule> schedule = ParseSchedule(options.schedule, now, fault);
    if (!schedule) return output.Error(exitUsage, fault);
    ExitStatus status = exitDone;
    const std::optional<Application> application = ApplicationOf(options, output, status);
    if (!application) return status;
    // The helper drops the schedules of an application that it doesn't find when it starts.
    if (access(application->path.c_str(), F_OK) != 0)
        return output.Error(exitNotFound, "no application at " + application->path);

    auto overview = Overview::Now();
    if (!overview) return UnreadableStore(output);
    const StoredSchedule wanted = AsStored(*application, *schedule);
    const ScheduleView view = overview->View(wanted, now);
    const auto& views = overview->Schedules();
    const bool replaces = std::any_of(views.begin(), views.end(), [&](const ScheduleView& one) {
        return IsOf(one.schedule, *application) && one.schedule.name == wanted.name;
    });
    const std::string times = wanted.name + ": start " + LocalTimeText(view.forecast.Start()) + ", launch " +
                              LocalTimeText(view.forecast.launch);
    for (const std::string& note : view.notes) output.Warning(wanted.name + ": " + note);
    if ((schedule->daily || schedule->weekly) && schedule->start > view.forecast.Start())
        output.Warning(wanted.name + ": begins at " + LocalTimeText(view.forecast.Start()) +
                       " already; of a repeating one only the time of day counts");
    Record record = ScheduleRecord(view, now);
    record.emplace_back("replaces", replaces);
    record.emplace_back("added", !options.dryRun);
    if (options.dryRun) {
        output.Answer(std::string("would ") + (replaces ? "replace " : "add ") + times, record);
        return exitDone;
    }

    HelperClient helper;
    if (!helper.Connect()) return Unreachable(output);
    if (!helper.Tell(HelperRequest::Add(*application, *schedule), options.timeoutMs)) return Unanswered(output);
    const auto stored = ReadStore(StorePath());
    if (!stored || std::find(stored->begin(), stored->end(), wanted) == stored->end())
        return NotStored(output, " does not hold it");
    output.Answer((replaces ? "replaced " : "added ") + times, record);
    return exitDone;
}

int RunDelete(const Options& options) {
    const Output output(options.style);
    if (options.all != options.names.empty())
        return output.Error(exitUsage, options.all ? "names or --all, not both" : "which schedule? (or --all)");
    auto stored = ReadStore(StorePath());
    if (!stored) return UnreadableStore(output);
    ExitStatus status = exitDone;
    const auto chosen = Chosen(*stored, options, output, status);
    if (!chosen) return status;
    std::vector<std::string> names;
    for (const StoredSchedule& schedule : *chosen) names.push_back(schedule.name);
    const Record record = {{"deleted", names}, {"dryRun", options.dryRun}};
    const std::string what = names.size() == 1 ? names.front() : Counted(names.size());
    if (options.dryRun) {
        output.Answer("would delete " + what, record);
        return exitDone;
    }

    HelperClient helper;
    if (!helper.Connect()) return Unreachable(output);
    if (!DeleteFrom(helper, *stored, *chosen, options.all, options.timeoutMs)) return Unanswered(output);
    stored = ReadStore(StorePath());
    const bool isGone = stored && std::none_of(chosen->begin(), chosen->end(), [&](const StoredSchedule& schedule) {
                            return std::find(stored->begin(), stored->end(), schedule) != stored->end();
                        });
    if (!isGone) return NotStored(output, " still holds some");
    output.Answer("deleted " + what, record);
    return exitDone;
}

}  // namespace tools
