#include "Commands.h"

#include "Output.h"
#include "app/LScheduleHelperKeys.h"
#include "common/Folders.h"
#include "common/HelperClient.h"
#include "common/ScheduleStore.h"
#include "common/ScheduleText.h"

#include <cstdlib>
#include <optional>
#include <unistd.h>

namespace tools {

namespace {

constexpr size_t maxPathBytes = 259;
constexpr const char* quilloBundleName = "Quillo.app";
constexpr const char* applicationVariable = "SCHEDULECTL_APP";

// Why there is no helper to talk to.
ExitStatus Unreachable(const Output& output) {
    if (IsHelperRunning(StorePath()))
        return output.Error(exitUnreachable,
                            "the helper runs, but the helper serves only once Quillo runs: start Quillo, "
                            "then the helper once more");
    return output.Error(exitUnreachable, "no helper runs");
}

ExitStatus Unanswered(const Output& output) {
    return output.Error(exitUnreachable, "the helper does not answer");
}

// The application that a request is about. Nothing, and `status` says why, when there is none.
std::optional<Application> ApplicationOf(const Options& options, const Output& output, ExitStatus& status) {
    const char* fromEnvironment = getenv(applicationVariable);
    std::string path = options.appPath;
    if (path.empty() && fromEnvironment) path = fromEnvironment;
    if (path.empty()) {
        const std::optional<std::string> installed = FindBundle(quilloBundleName, OwnBundle());
        if (!installed) {
            status = output.Error(exitNotFound, "no Quillo.app beside this program or installed: name it with --app");
            return {};
        }
        path = *installed;
    }
    path = AbsolutePath(path);
    if (path.size() > maxPathBytes || !NameFault(path).empty()) {
        status = output.Error(exitUsage, "the application's path must be UTF-8 of at most 259 bytes: " + path);
        return {};
    }
    return Application{options.bundleId, path};
}

bool IsStored(const std::vector<StoredSchedule>& schedules, const StoredSchedule& wanted) {
    for (const StoredSchedule& schedule : schedules)
        if (schedule == wanted) return true;
    return false;
}

// Before the first ten seconds of a day the helper's lead falls on the day before, but a weekly schedule stays on the
// days it was given.
bool StartsAlmostADayLate(const NewSchedule& schedule) {
    tm fields{};
    return schedule.weekly && !schedule.daily && localtime_r(&schedule.start, &fields) && fields.tm_hour == 0 &&
           fields.tm_min == 0 && fields.tm_sec < kLaunchLeadSeconds;
}

}  // namespace

int RunTest(const Options& options) {
    const Output output(options.json);
    HelperClient helper;
    if (!helper.Connect()) return Unreachable(output);
    if (helper.Ask(HelperRequest::Test(), options.timeoutMs) != HelperClient::Answer::Yes) return Unanswered(output);
    output.Answer("the helper answers", {{"answered", true}});
    return exitDone;
}

int RunHandshake(const Options& options) {
    const Output output(options.json);
    ExitStatus status = exitDone;
    const std::optional<Application> application = ApplicationOf(options, output, status);
    if (!application) return status;
    HelperClient helper;
    if (!helper.Connect()) return Unreachable(output);
    switch (helper.Ask(HelperRequest::Handshake(*application), options.timeoutMs)) {
    case HelperClient::Answer::Yes:
        output.Answer("the helper knows " + application->path, {{"accepted", true}});
        return exitDone;
    case HelperClient::Answer::Disconnected:
        return Unanswered(output);
    default:
        return output.Error(exitRefused, "the helper gives no answer to " + application->path);
    }
}

int RunAdd(const Options& options) {
    const Output output(options.json);
    std::string fault;
    const std::optional<NewSchedule> schedule = ParseSchedule(options.schedule, time(nullptr), fault);
    if (!schedule) return output.Error(exitUsage, fault);
    ExitStatus status = exitDone;
    const std::optional<Application> application = ApplicationOf(options, output, status);
    if (!application) return status;
    // The helper drops the schedules of an application that it doesn't find when it starts.
    if (access(application->path.c_str(), F_OK) != 0)
        return output.Error(exitNotFound, "no application at " + application->path);
    if (StartsAlmostADayLate(*schedule))
        output.Warning(
            "a weekly schedule in the first ten seconds of a day is started almost a day late: take 00:00:10");

    HelperClient helper;
    if (!helper.Connect()) return Unreachable(output);
    if (!helper.Tell(HelperRequest::Add(*application, *schedule), options.timeoutMs)) return Unanswered(output);

    const StoredSchedule wanted{
        application->bundleId, application->path, schedule->name,    schedule->start - kLaunchLeadSeconds,
        schedule->daily,       schedule->weekly,  schedule->weekdays};
    const auto stored = ReadStore(StorePath());
    if (!stored || !IsStored(*stored, wanted))
        return output.Error(exitFailure, "the store " + StorePath() + " does not hold it");
    output.Answer("added " + wanted.name + ": start " + LocalTimeText(wanted.Start()) + ", launch " +
                      LocalTimeText(wanted.launch),
                  {{"added", ToJson(wanted)}});
    return exitDone;
}

int RunDelete(const Options& options) {
    const Output output(options.json);
    if (const std::string fault = NameFault(options.schedule.name); !fault.empty())
        return output.Error(exitUsage, fault);
    const std::string appPath = options.appPath.empty() ? "" : AbsolutePath(options.appPath);
    auto stored = ReadStore(StorePath());
    if (!stored) return output.Error(exitFailure, "the store " + StorePath() + " can't be read");
    const auto found = SchedulesNamed(*stored, options.schedule.name, options.bundleId, appPath);
    if (found.empty()) return output.Error(exitNotFound, "no schedule is named " + options.schedule.name);
    if (found.size() > 1)
        return output.Error(exitUsage,
                            "several applications have a schedule " + options.schedule.name + ": name one with --app");

    const Application application{found.front().bundleId, found.front().appPath};
    HelperClient helper;
    if (!helper.Connect()) return Unreachable(output);
    if (!helper.Tell(HelperRequest::Delete(application, options.schedule.name), options.timeoutMs))
        return Unanswered(output);
    stored = ReadStore(StorePath());
    if (!stored || !SchedulesNamed(*stored, options.schedule.name, application.bundleId, application.path).empty())
        return output.Error(exitFailure, "the store " + StorePath() + " still holds it");
    output.Answer("deleted " + options.schedule.name, {{"deleted", options.schedule.name}});
    return exitDone;
}

int RunDeleteAll(const Options& options) {
    const Output output(options.json);
    ExitStatus status = exitDone;
    const std::optional<Application> application = ApplicationOf(options, output, status);
    if (!application) return status;
    const auto count = [&]() -> std::optional<size_t> {
        const auto stored = ReadStore(StorePath());
        if (!stored) return {};
        size_t n = 0;
        for (const StoredSchedule& schedule : *stored)
            n += schedule.bundleId == application->bundleId && schedule.appPath == application->path;
        return n;
    };
    const std::optional<size_t> before = count();
    if (!before) return output.Error(exitFailure, "the store " + StorePath() + " can't be read");
    HelperClient helper;
    if (!helper.Connect()) return Unreachable(output);
    if (!helper.Tell(HelperRequest::DeleteAll(*application), options.timeoutMs)) return Unanswered(output);
    if (count() != size_t{0}) return output.Error(exitFailure, "the store " + StorePath() + " still holds some");
    output.Answer("deleted " + std::to_string(*before) + (*before == 1 ? " schedule" : " schedules"),
                  {{"deleted", *before}});
    return exitDone;
}

int RunList(const Options& options) {
    const Output output(options.json);
    const auto stored = ReadStore(StorePath());
    if (!stored) return output.Error(exitFailure, "the store " + StorePath() + " can't be read");
    output.List(*stored);
    return exitDone;
}

int RunMayQuit(const Options& options) {
    const Output output(options.json);
    HelperClient helper;
    if (!helper.Connect()) return Unreachable(output);
    switch (helper.Ask(HelperRequest::MayQuit(), options.timeoutMs)) {
    case HelperClient::Answer::Yes:
        output.Answer("yes", {{"mayQuit", true}});
        return exitDone;
    case HelperClient::Answer::No:
        output.Answer("no: it has schedules", {{"mayQuit", false}});
        return exitRefused;
    default:
        return Unanswered(output);
    }
}

int RunQuit(const Options& options) {
    const Output output(options.json);
    HelperClient helper;
    if (!helper.Connect()) return Unreachable(output);
    if (!helper.TellToQuit(options.timeoutMs)) return output.Error(exitUnreachable, "the helper is still there");
    output.Answer("the helper has ended", {{"quit", true}});
    return exitDone;
}

}  // namespace tools
