#include "CommandParts.h"

#include "app/LScheduleHelperKeys.h"
#include "common/Folders.h"
#include "common/ScheduleText.h"

#include <algorithm>
#include <cstdlib>
#include <numeric>

namespace tools {

namespace {

constexpr const char* quilloBundleName = "Quillo.app";
constexpr const char* applicationVariable = "SCHEDULECTL_APP";

// Letters to insert, delete or replace until `a` is `b`, ignoring ASCII case.
size_t Distance(const std::string& a, const std::string& b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); i++) {
        size_t diagonal = row[0]++;
        for (size_t j = 1; j <= b.size(); j++) {
            const size_t replaced = diagonal + (lower(a[i - 1]) != lower(b[j - 1]));
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

}  // namespace

ExitStatus Unreachable(const Output& output) {
    if (IsHelperRunning(StorePath()))
        return output.Error(exitUnreachable, "the helper runs, but it serves only once Quillo runs: start Quillo, "
                                             "which starts the helper once more");
    return output.Error(exitUnreachable, "no helper runs (schedulectl start)");
}

ExitStatus Unanswered(const Output& output) {
    return output.Error(exitUnreachable, "the helper does not answer; what was asked of it may still be done");
}

ExitStatus NotStored(const Output& output, const std::string& what) {
    return output.Error(exitFailure, "the store " + StorePath() + what +
                                         "; where it had no room (schedulectl doctor) the helper remembers, and "
                                         "writes it with the next change");
}

ExitStatus UnreadableStore(const Output& output) {
    return output.Error(exitFailure, "the store " + StorePath() + " can't be read (schedulectl doctor)");
}

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
    Application application{options.bundleId.empty() ? kMainAppBundleId : options.bundleId, path};
    if (const std::string fault = ApplicationFault(application); !fault.empty()) {
        status = output.Error(exitUsage, fault + ": " + path);
        return {};
    }
    return application;
}

std::string ApplicationFault(const Application& application) {
    // The helper runs in another folder, finds no application there, and drops the schedule when it is started.
    if (!application.path.starts_with('/')) return "its application's path does not begin with /";
    for (const std::string& text : {application.path, application.bundleId})
        if (!NameFault(text).empty() || HasControls(text))
            return "its application's path or identifier is no text of 1 to 259 bytes without control characters";
    return "";
}

StoredSchedule AsStored(const Application& application, const NewSchedule& schedule) {
    return {application.bundleId, application.path, schedule.name,    schedule.start - kLaunchLeadSeconds,
            schedule.daily,       schedule.weekly,  schedule.weekdays};
}

NewSchedule AsNew(const StoredSchedule& schedule) {
    return {schedule.name, schedule.Start(), schedule.daily, schedule.weekly, schedule.weekdays};
}

std::optional<StoredSchedule> FindNamed(const std::vector<StoredSchedule>& stored, const std::string& name,
                                        const Options& options, const Output& output, ExitStatus& status) {
    if (const std::string fault = NameFault(name); !fault.empty()) {
        status = output.Error(exitUsage, fault);
        return {};
    }
    const std::string appPath = options.appPath.empty() ? "" : AbsolutePath(options.appPath);
    const auto found = SchedulesNamed(stored, name, options.bundleId, appPath);
    if (found.size() == 1) return found.front();
    if (found.size() > 1) {
        status = output.Error(exitUsage, "several applications have a schedule " + name + ": name one with --app");
        return {};
    }
    std::vector<std::string> names;
    names.reserve(stored.size());
    for (const StoredSchedule& schedule : stored) names.push_back(schedule.name);
    const std::string nearest = NearestName(name, names);
    status = output.Error(exitNotFound, "no schedule is named " + name +
                                            (nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?"));
    return {};
}

std::string NearestName(const std::string& wanted, const std::vector<std::string>& names) {
    std::string nearest;
    size_t least = wanted.size() / 3 + 2;  // a larger part of it is another name
    for (const std::string& name : names)
        if (const size_t distance = Distance(wanted, name); distance < least) {
            least = distance;
            nearest = name;
        }
    return nearest;
}

}  // namespace tools
