// import and export.
#include "CommandParts.h"
#include "ScheduleFile.h"
#include "app/LScheduleHelperKeys.h"
#include "common/Folders.h"
#include "common/ScheduleText.h"
#include "common/StopSignal.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace tools {

namespace {

struct Wanted {
    Application application;
    NewSchedule schedule;
};

using Key = std::tuple<std::string, std::string, std::string>;

Key KeyOf(const StoredSchedule& schedule) {
    return {schedule.bundleId, schedule.appPath, schedule.name};
}

bool IsCalendar(const Options& options) {
    if (!options.format.empty()) return options.format == "ical";
    return options.file.ends_with(".ics") || options.file.ends_with(".ical");
}

std::optional<std::string> ReadAll(const std::string& path) {
    FILE* const file = path == "-" ? stdin : std::fopen(path.c_str(), "re");
    if (!file) return {};
    std::string text;
    std::array<char, 65536> part{};
    for (size_t count; (count = std::fread(part.data(), 1, part.size(), file)) > 0;) text.append(part.data(), count);
    const int error = std::ferror(file) ? errno : 0;
    if (file != stdin) std::fclose(file);
    errno = error;
    return error != 0 ? std::nullopt : std::optional(std::move(text));
}

bool Write(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    return static_cast<bool>(file);
}

// An earlier export stays as it is where there is no room for this one.
bool WriteWhole(const std::string& path, const std::string& text) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) return Write(path, text);
    const std::string fresh = path + ".new-" + std::to_string(getpid());
    if (Write(fresh, text) && std::rename(fresh.c_str(), path.c_str()) == 0) return true;
    const int error = errno;
    unlink(fresh.c_str());
    errno = error;
    return false;
}

// Fills in what a file leaves open, and refuses what the helper would not start.
std::vector<Wanted> Check(ParsedFile& parsed, const Options& options, const Output& output, ExitStatus& status) {
    std::vector<Wanted> all;
    std::map<Key, std::string> seen;
    std::optional<Application> otherwise;
    for (FileSchedule& one : parsed.schedules) {
        const auto refuse = [&](const std::string& why) {
            parsed.faults.push_back(one.where + " (" + one.schedule.name + "): " + why);
        };
        if (one.application.path.empty() || !options.appPath.empty()) {
            if (!otherwise) otherwise = ApplicationOf(options, output, status);
            if (!otherwise) return {};
            one.application.path = otherwise->path;
            if (one.application.bundleId.empty() || !options.bundleId.empty())
                one.application.bundleId = otherwise->bundleId;
        }
        if (one.application.bundleId.empty()) one.application.bundleId = kMainAppBundleId;
        // One application's path in two forms would be two applications to the helper.
        if (one.application.path.starts_with('/')) one.application.path = AbsolutePath(one.application.path);
        if (const std::string fault = ScheduleFault(one.schedule, time(nullptr)); !fault.empty())
            refuse(fault);
        else if (const std::string unfit = ApplicationFault(one.application); !unfit.empty())
            refuse(unfit);
        else if (access(one.application.path.c_str(), F_OK) != 0)
            refuse("no application at " + one.application.path);
        else if (const auto [first, isNew] = seen.emplace(KeyOf(AsStored(one.application, one.schedule)), one.where);
                 !isNew)
            refuse("the same as " + first->second);
        else
            all.push_back({one.application, WithLaunchOnItsClock(one.schedule)});
    }
    return all;
}

// Adds, and takes back what it added when it can't go through.
class Import {
public:
    Import(const Output& to, uint32_t timeout) : output(to), timeoutMs(timeout) {}

    ExitStatus Run(const std::vector<Wanted>& all) {
        const auto stored = ReadStore(StorePath());
        if (!stored) return UnreadableStore(output);
        if (!helper.Connect()) return Unreachable(output);
        for (const StoredSchedule& schedule : *stored) before.emplace(KeyOf(schedule), schedule);
        for (const Wanted& one : all) {
            const bool isStopped = AwaitStopSignal(0);
            if (isStopped || !helper.Tell(HelperRequest::Add(one.application, one.schedule), timeoutMs))
                return isStopped ? TakeBack(all, exitFailure, "interrupted")
                                 : TakeBack(all, exitUnreachable, "the helper does not answer");
            output.Progress("importing", ++done, all.size());
        }
        const auto after = ReadStore(StorePath());
        const bool isWhole =
            after && std::all_of(all.begin(), all.end(), [&, known = KeysOf(*after)](const Wanted& one) {
                const auto found = known.find(KeyOf(AsStored(one.application, one.schedule)));
                return found != known.end() && found->second == AsStored(one.application, one.schedule);
            });
        return isWhole ? exitDone : TakeBack(all, exitFailure, "the store " + StorePath() + " does not hold all of it");
    }

private:
    static std::map<Key, StoredSchedule> KeysOf(const std::vector<StoredSchedule>& schedules) {
        std::map<Key, StoredSchedule> keys;
        for (const StoredSchedule& schedule : schedules) keys.emplace(KeyOf(schedule), schedule);
        return keys;
    }

    // The one that failed, too: it may have come through.
    ExitStatus TakeBack(const std::vector<Wanted>& all, ExitStatus status, const std::string& why) {
        HelperClient again;  // the first connection may be the one that broke
        bool isBack = again.Connect();
        for (size_t i = std::min(done + 1, all.size()); isBack && i-- > 0;) {
            const auto old = before.find(KeyOf(AsStored(all[i].application, all[i].schedule)));
            isBack = again.Tell(old == before.end() ? HelperRequest::Delete(all[i].application, all[i].schedule.name)
                                                    : HelperRequest::Add(all[i].application, AsNew(old->second)),
                                timeoutMs);
        }
        if (isBack) return output.Error(status, why + ": nothing is imported");
        return output.Error(status, why + ", also to take back what was added: the first " + std::to_string(done) +
                                        " may be stored (schedulectl list)");
    }

    const Output& output;
    uint32_t timeoutMs;
    HelperClient helper;
    std::map<Key, StoredSchedule> before;
    size_t done = 0;
};

}  // namespace

int RunImport(const Options& options) {
    const Output output(options.style);
    const auto text = ReadAll(options.file);
    if (!text) return output.Error(exitNotFound, options.file + " can't be read: " + std::strerror(errno));
    const bool isCalendar = IsCalendar(options) || (options.format.empty() && text->starts_with("BEGIN:VCALENDAR"));
    ParsedFile parsed = isCalendar ? ParseCalendar(*text, time(nullptr)) : ParseJsonSchedules(*text, time(nullptr));
    ExitStatus status = exitDone;
    const std::vector<Wanted> all = Check(parsed, options, output, status);
    if (status != exitDone) return status;
    for (const std::string& fault : parsed.faults) output.Error(exitUsage, fault);
    const std::string others = "; --skip-refused imports the other " + std::to_string(all.size());
    if (!parsed.faults.empty() && (all.empty() || !options.skipRefused))
        return output.Error(exitUsage, "nothing is imported" + (all.empty() ? "" : others));
    BlockStopSignals();  // from here on an interruption is taken back
    if (!options.dryRun && !all.empty()) status = Import(output, options.timeoutMs).Run(all);
    if (status != exitDone) return status;
    output.Answer((options.dryRun ? "would import " : "imported ") + std::to_string(all.size()) + " of " +
                      std::to_string(all.size() + parsed.faults.size()),
                  {{"imported", static_cast<int64_t>(all.size())},
                   {"refused", static_cast<int64_t>(parsed.faults.size())},
                   {"dryRun", options.dryRun}});
    return exitDone;
}

int RunExport(const Options& options) {
    const Output output(options.style);
    const auto overview = Overview::Now();
    if (!overview) return UnreadableStore(output);
    std::string text;
    std::vector<StoredSchedule> left;
    if (IsCalendar(options)) {
        std::vector<StoredSchedule> stored;
        for (const ScheduleView& view : overview->Schedules()) stored.push_back(view.schedule);
        text = CalendarText(stored, overview->Moment(), left);
    } else {
        text = Output::JsonArray("schedules", ScheduleRows(overview->Schedules(), overview->Moment(), true), {}) + "\n";
    }
    for (const StoredSchedule& schedule : left)
        output.Warning(schedule.name + " is not exported: a weekly one without a day is no calendar entry");
    if (options.file == "-") {
        output.Raw(text);
        return exitDone;
    }
    if (!WriteWhole(options.file, text))
        return output.Error(exitFailure, options.file + " can't be written: " + std::strerror(errno));
    const size_t count = overview->Schedules().size() - left.size();
    output.Answer("exported " + std::to_string(count) + (count == 1 ? " schedule" : " schedules"),
                  {{"exported", static_cast<int64_t>(count)}});
    return exitDone;
}

}  // namespace tools
