#include "CommandParts.h"
#include "JournalLine.h"
#include "app/LScheduleHelperKeys.h"
#include "common/RunProgram.h"
#include "common/ScheduleText.h"
#include "common/StopSignal.h"
#include "common/UserUnit.h"

namespace tools {

namespace {

constexpr time_t kStopDistance = 60;      // seconds to the next start, below which a helper isn't stopped
constexpr time_t kRestartDistance = 120;  // the same for a restart, which waits
constexpr double kAfterStart = 2;         // seconds after a start's moment: it is on its way then

std::string HelperText(const HelperProcess& helper) {
    if (helper.pid <= 0) return "the helper";
    return "the helper (process " + std::to_string(helper.pid) + ")";
}

ExitStatus Unloaded(const Output& output, const HelperProcess& helper) {
    return output.Error(exitUnreachable, HelperText(helper) + " runs, but doesn't answer yet");
}

// The start that a helper which ends now would miss: nothing when it is further away than `distance`.
const ScheduleView* NearStart(const Overview& overview, time_t distance) {
    const ScheduleView* const next = overview.Next();
    return next && next->forecast.launch - overview.Moment() < distance ? next : nullptr;
}

// Waits until no start is near. False: it was interrupted, or the store can't be read any more.
bool AwaitQuietTime(const Output& output) {
    bool hasTold = false;
    for (;;) {
        const auto overview = Overview::Now();
        if (!overview) return false;
        const ScheduleView* const near = NearStart(*overview, kRestartDistance);
        if (!near) return true;
        if (!hasTold)
            output.Warning("waits for the start of " + near->schedule.name + " at " +
                           LocalTimeText(near->forecast.launch));
        hasTold = true;
        // A look every ten seconds: schedules may be added or deleted meanwhile.
        const auto left = static_cast<double>(near->forecast.launch - overview->Moment()) + kAfterStart;
        if (AwaitStopSignal(std::min(left, 10.0))) return false;
    }
}

// Why no helper should be started now: it drops the schedules of an application that isn't there. "" when all are.
std::string WhatAStartWouldDrop() {
    const auto overview = Overview::Now();
    if (!overview) return "";
    for (const auto& [path, bundle] : overview->Bundles())
        if (!bundle.isThere)
            return path + " isn't there now, and a helper that is started drops the schedules of such an application: "
                          "put it back first (or --drop-missing; schedulectl export keeps a copy)";
    return "";
}

}  // namespace

int RunTest(const Options& options) {
    const Output output(options.style);
    HelperClient helper;
    if (!helper.Connect()) return Unreachable(output);
    if (helper.Ask(HelperRequest::Test(), options.timeoutMs) != HelperClient::Answer::Yes) return Unanswered(output);
    output.Answer("the helper answers", {{"answered", true}});
    return exitDone;
}

int RunHandshake(const Options& options) {
    const Output output(options.style);
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

int RunMayQuit(const Options& options) {
    const Output output(options.style);
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
    const Output output(options.style);
    HelperClient helper;
    if (!helper.Connect()) return Unreachable(output);
    if (!helper.TellToQuit(options.timeoutMs)) return output.Error(exitUnreachable, "the helper is still there");
    output.Answer("the helper has ended", {{"quit", true}});
    return exitDone;
}

int RunStatus(const Options& options) {
    const Output output(options.style);
    const auto overview = Overview::Now();
    const auto helper = FindHelper();
    Record record = {{"runs", helper.has_value()}, {"store", StorePath()}, {"storeReadable", overview.has_value()}};
    std::vector<std::pair<std::string, Cell>> lines;
    bool hangs = false;
    if (helper) {
        HelperClient client;
        const bool serves = client.Connect();
        const bool answers =
            serves && client.Ask(HelperRequest::Test(), options.timeoutMs) == HelperClient::Answer::Yes;
        hangs = serves && !answers;
        const bool isUnit = IsUserUnitActive();
        const std::string pid = helper->pid > 0 ? ", process " + std::to_string(helper->pid) : "";
        const std::string since = helper->since > 0 ? ", since " + LocalTimeText(helper->since) : "";
        lines.push_back(
            {"helper", {"runs" + pid + since + (isUnit ? ", as " + std::string(kUserUnit) : ""), Tone::Good}});
        lines.push_back({"service", answers  ? Cell{"answers", Tone::Good}
                                    : serves ? Cell{"does not answer", Tone::Bad}
                                             : Cell{"serves nobody until Quillo runs", Tone::Attention}});
        record.insert(record.end(), {{"pid", int64_t{helper->pid}},
                                     {"since", int64_t{helper->since}},
                                     {"serves", serves},
                                     {"answers", answers},
                                     {"unit", isUnit}});
    } else {
        lines.push_back({"helper", {"doesn't run: nothing will be started (schedulectl start)", Tone::Bad}});
    }
    if (overview) {
        lines.push_back({"schedules", {std::to_string(overview->Schedules().size())}});
        record.emplace_back("schedules", static_cast<int64_t>(overview->Schedules().size()));
        if (const ScheduleView* next = overview->Next()) {
            lines.push_back({"next",
                             {next->schedule.name + " at " + LocalTimeText(next->forecast.Start()) + ", launch in " +
                              DurationText(next->forecast.launch - overview->Moment())}});
            record.emplace_back("nextName", next->schedule.name);
            record.emplace_back("nextLaunch", int64_t{next->forecast.launch});
        }
    } else {
        lines.push_back({"store", {StorePath() + " can't be read", Tone::Bad}});
    }
    output.Sheet(lines, record);
    if (!overview) return exitFailure;
    return helper && !hangs ? exitDone : exitUnreachable;
}

int RunStart(const Options& options) {
    const Output output(options.style);
    // One may be loading still, or about to end: then there is one to be started.
    if (FindHelper()) {
        const bool isLoaded = AwaitLoaded(options.timeoutMs);
        const auto helper = FindHelper();
        if (helper && !isLoaded) return Unloaded(output, *helper);
        if (helper) {
            output.Answer(HelperText(*helper) + " runs already", {{"started", false}, {"pid", int64_t{helper->pid}}});
            return exitDone;
        }
    }
    if (!options.dropMissing)
        if (const std::string fault = WhatAStartWouldDrop(); !fault.empty())
            return output.Error(exitRefused, "not started: " + fault);
    const std::string what = StartHelper(options.timeoutMs);
    const auto helper = FindHelper();
    if (what.empty() && helper) return Unloaded(output, *helper);
    if (what.empty() || !helper)
        return output.Error(FindHelperBundle() ? exitUnreachable : exitNotFound,
                            "the helper could not be started (schedulectl doctor, schedulectl log)");
    output.Answer(what, {{"started", true}, {"pid", int64_t{helper->pid}}});
    return exitDone;
}

int RunStop(const Options& options) {
    const Output output(options.style);
    const auto overview = Overview::Now();
    const auto helper = FindHelper();
    if (!helper) return output.Error(exitUnreachable, "no helper runs");
    if (!options.force) {
        if (!overview)
            return output.Error(exitRefused, "the store can't be read, so nobody knows what would be missed (--force)");
        if (const ScheduleView* near = NearStart(*overview, kStopDistance))
            return output.Error(exitRefused, near->schedule.name + " is to be started at " +
                                                 LocalTimeText(near->forecast.launch) +
                                                 ", in less than a minute: it would be missed (--force)");
    }
    if (!EndHelper(*helper, options.timeoutMs)) return output.Error(exitUnreachable, "the helper is still there");
    const bool isWaiting = overview && overview->Next();
    output.Answer(HelperText(*helper) + " has ended" + (isWaiting ? "; nothing is started until it runs again" : ""),
                  {{"stopped", true}, {"pid", int64_t{helper->pid}}});
    return exitDone;
}

int RunRestart(const Options& options) {
    const Output output(options.style);
    BlockStopSignals();
    if (!FindHelper()) {
        output.Answer("no helper runs: nothing to restart", {{"restarted", false}});
        return exitDone;
    }
    if (!options.force && !AwaitQuietTime(output)) return output.Error(exitRefused, "not restarted");
    if (!options.dropMissing)
        if (const std::string fault = WhatAStartWouldDrop(); !fault.empty())
            return output.Error(exitRefused, "not restarted: " + fault);
    const auto helper = FindHelper();
    const std::string what = helper ? RestartHelper(*helper, options.timeoutMs) : StartHelper(options.timeoutMs);
    if (what.empty())
        return output.Error(exitUnreachable, FindHelper() ? "a helper is there, but doesn't answer"
                                                          : "the helper has ended and could not be started again");
    output.Answer("restarted: " + what, {{"restarted", true}});
    return exitDone;
}

int RunLog(const Options& options) {
    const Output output(options.style);
    std::vector<std::string> words = {"journalctl", "--user", "--quiet", "--output=json", "--user-unit", kUserUnit};
    words.push_back("--lines=" + std::to_string(options.lines));
    if (options.follow) words.emplace_back("--follow");
    bool hasAny = false;
    const int status = RunProgram(words, [&](const std::string& line) {
        const auto entry = ParseJournalLine(line);
        if (!entry) return true;
        hasAny = true;
        output.Event(LocalTimeText(entry->moment) + "  " + entry->program + "[" + entry->pid + "]: " + entry->message,
                     {{"time", int64_t{entry->moment}},
                      {"program", entry->program},
                      {"pid", entry->pid},
                      {"message", entry->message}});
        return true;
    });
    if (hasAny) return exitDone;
    if (status != 0)
        return output.Error(exitNotFound, "no journal is here; a helper that wasn't started by systemd "
                                          "writes to its starter's standard error");
    return output.Error(exitNotFound,
                        "the journal has nothing of " + std::string(kUserUnit) +
                            "; a helper that wasn't started by systemd writes to its starter's standard error");
}

}  // namespace tools
