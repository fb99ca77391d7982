// doctor: everything between a schedule and a running recorder, checked one by one.
#include "CommandParts.h"
#include "app/LScheduleHelperKeys.h"
#include "common/Folders.h"
#include "common/ScheduleText.h"
#include "common/UserUnit.h"

#include <AppKit/AppKit.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/un.h>
#include <unistd.h>

#include <bsd/LDescriptor.h>

namespace tools {

namespace {

namespace fs = std::filesystem;

enum class Verdict { Good, NotApplicable, Bad };

struct Finding {
    std::string check;
    Verdict verdict = Verdict::Good;
    std::string detail;
    std::string remedy;  // of what is bad
};

class Examination {
public:
    explicit Examination(uint32_t timeout) : timeoutMs(timeout) {}

    std::vector<Finding> Run() {
        overview = Overview::Now();
        helper = FindHelper();
        CheckHelper();
        CheckStore();
        if (overview) CheckApplications();
        CheckDisplay();
        CheckLingering();
        CheckClock();
        CheckZone();
        if (overview) {
            CheckShifts();
            CheckMissed();
            CheckNext();
        }
        return std::move(findings);
    }

private:
    void Good(const char* check, const std::string& detail) { findings.push_back({check, Verdict::Good, detail, ""}); }
    void Skip(const char* check, const std::string& why) {
        findings.push_back({check, Verdict::NotApplicable, why, ""});
    }
    void Bad(const char* check, const std::string& detail, const std::string& remedy) {
        findings.push_back({check, Verdict::Bad, detail, remedy});
    }

    void CheckHelper() {
        if (!helper) {
            Bad("helper", "no helper runs: nothing is started", "schedulectl start");
            return Skip("service", "no helper runs");
        }
        Good("helper", "runs" + (helper->pid > 0 ? " as process " + std::to_string(helper->pid) : "") +
                           (helper->since > 0 ? " since " + LocalTimeText(helper->since) : ""));
        HelperClient client;
        if (!client.Connect()) {
            if (IsQuilloRunning())
                return Bad("service", "Quillo runs, but the helper serves nobody",
                           "start the helper a second time: it looks again (or: schedulectl restart)");
            return Good("service", "serves nobody until Quillo runs; what is stored is started all the same");
        }
        if (client.Ask(HelperRequest::Test(), timeoutMs) != HelperClient::Answer::Yes)
            return Bad("service", "the helper took the connection and does not answer",
                       "schedulectl restart; then report what schedulectl log shows");
        Good("service", "answers");
    }

    static bool IsQuilloRunning() {
        const auto running = NSRunningApplication::runningApplicationsWithBundleIdentifier(NSString(kMainAppBundleId));
        return std::any_of(running.begin(), running.end(),
                           [](const auto& one) { return one.localizedName().View() == kMainAppName; });
    }

    void CheckStore() {
        const std::string path = StorePath();
        struct stat info {};
        const bool isThere = lstat(path.c_str(), &info) == 0;
        if (isThere && (info.st_uid != geteuid() || !S_ISREG(info.st_mode)))
            return Bad("store", path + " is a link or another user's: the helper leaves it alone, and stores nothing",
                       "move it away, or make it a file of yours");
        if (isThere && access(path.c_str(), R_OK) != 0)
            return Bad("store", path + " may not be read: the helper leaves it alone, and stores nothing",
                       "chmod 600 '" + path + "'");
        if (!overview)
            return Bad("store", path + " can't be read as a store",
                       "look at it; the helper sets a damaged one aside when it is started and begins a new one");
        if (const auto aside = SetAside(path); !aside.empty())
            return Bad("store", "a damaged one was set aside: " + aside.front(),
                       "add again what is missing, then delete that file");
        const std::string folder = FolderOf(path);
        struct statvfs disk {};
        const auto needed = static_cast<uint64_t>(isThere ? info.st_size : 0) + 65'536;
        if (statvfs(folder.c_str(), &disk) == 0 && disk.f_bavail * disk.f_frsize < needed)
            return Bad("store", "there is no room for a change of it in " + folder,
                       "make room: what the helper could not write it writes with the next change");
        if (access(folder.c_str(), F_OK) == 0 && access(folder.c_str(), W_OK | X_OK) != 0)
            return Bad("store", "nothing may be written into " + folder, "chmod u+rwx '" + folder + "'");
        if (!isThere) return Good("store", "none yet: nothing was ever scheduled");
        const size_t count = overview->Schedules().size();
        Good("store", std::to_string(count) + (count == 1 ? " schedule" : " schedules") + " in " + path);
    }

    static std::vector<std::string> SetAside(const std::string& store) {
        std::vector<std::string> found;
        std::error_code ignored;
        const std::string prefix = fs::path(store).filename().string() + ".damaged-";
        for (const auto& entry : fs::directory_iterator(FolderOf(store), ignored))
            if (entry.path().filename().string().starts_with(prefix)) found.push_back(entry.path());
        std::sort(found.begin(), found.end());
        return found;
    }

    void CheckApplications() {
        if (overview->Bundles().empty()) return Skip("application", "nothing is scheduled");
        for (const auto& [path, bundle] : overview->Bundles()) CheckApplication(path, bundle);
    }

    void CheckApplication(const std::string& path, const BundleState& bundle) {
        const auto user = std::find_if(overview->Schedules().begin(), overview->Schedules().end(),
                                       [&](const auto& view) { return view.schedule.appPath == path; });
        const std::string& asked = user->schedule.bundleId;
        const std::string why = WhyNotStarted(bundle);
        if (!why.empty())
            Bad("application", path + ": nothing is started: " + why, RemedyOf(path, bundle));
        else if (bundle.identifier != asked)
            Bad("application",
                path + " calls itself \"" + bundle.identifier + "\", its schedules say \"" + asked +
                    "\": the helper doesn't see when it runs already",
                "add the schedules again with --bundle-id " + bundle.identifier);
        else
            Good("application", path + ", version " + bundle.version);
    }

    static std::string RemedyOf(const std::string& path, const BundleState& bundle) {
        if (!bundle.isThere) return "put it back before the helper is started again: it would drop the schedules";
        if (!bundle.isRightVersion)
            return std::string("install version ") + kMainAppVersion +
                   " there, or add the schedules for the one that is";
        if (bundle.program.empty()) return "install the application again";
        return "chmod +x '" + bundle.program + "' (" + path + ")";
    }

    // As the helper was started: its application inherits that.
    std::string Variable(const char* name) const {
        if (helper && helper->pid > 0) return HelperVariable(*helper, name).value_or("");
        const char* const value = std::getenv(name);
        return value ? value : "";
    }

    void CheckDisplay() {
        const std::string wayland = Variable("WAYLAND_DISPLAY"), x11 = Variable("DISPLAY");
        if (wayland.empty() && x11.empty()) {
            if (std::getenv("WAYLAND_DISPLAY") || std::getenv("DISPLAY"))
                return Bad("display", "the helper was started without the display that this session has",
                           "schedulectl restart from this session");
            return Skip("display", "neither WAYLAND_DISPLAY nor DISPLAY is set: no desktop here");
        }
        const std::string socket = wayland.empty()          ? X11Socket(x11)
                                   : wayland.front() == '/' ? wayland
                                                            : Variable("XDG_RUNTIME_DIR") + "/" + wayland;
        const std::string name = wayland.empty() ? x11 : wayland;
        if (socket.empty()) return Skip("display", name + " is on another machine: not tried");
        if (!IsListening(socket))
            return Bad("display", name + " can't be reached (" + socket + "): the application would have no window",
                       "log in to the desktop and restart the helper from there: schedulectl restart");
        Good("display", name + " can be reached");
    }

    // ":0", "unix:0.0", "/tmp/…/org.x:0"; "" for one of another machine.
    static std::string X11Socket(const std::string& display) {
        const size_t colon = display.rfind(':');
        if (colon == std::string::npos) return "";
        const std::string host = display.substr(0, colon);
        if (!host.empty() && host != "unix") return host.front() == '/' ? display : "";
        return "/tmp/.X11-unix/X" + display.substr(colon + 1, display.find('.', colon) - colon - 1);
    }

    static bool IsListening(const std::string& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.size() >= sizeof address.sun_path) return false;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        const LDescriptor plain(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        return connect(plain.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
               errno == EAGAIN;
    }

    void CheckLingering() {
        if (!IsUserUnitActive()) return Skip("lingering", "systemd doesn't run the helper here");
        const passwd* const user = getpwuid(geteuid());
        if (user && access((std::string("/var/lib/systemd/linger/") + user->pw_name).c_str(), F_OK) == 0)
            return Good("lingering", "the helper runs on when you log out");
        Bad("lingering", "the helper ends when you log out", "loginctl enable-linger");
    }

    void CheckClock() {
        constexpr time_t kBeforeThis = 1'767'225'600;  // 2026-01-01: a machine that lost its clock is far before
        const time_t now = time(nullptr);
        if (now < kBeforeThis)
            return Bad("clock", "it says " + LocalTimeText(now), "set the clock (timedatectl set-ntp true)");
        if (helper && helper->since > now + 60)
            return Bad("clock", "it was set back behind the helper's start", "schedulectl restart");
        if (access("/run/systemd/timesync/synchronized", F_OK) == 0)
            return Good("clock", LocalTimeText(now) + ", set by the network");
        Good("clock", LocalTimeText(now) + "; whether the network sets it isn't known here");
    }

    // As in "CET-1CEST" or "<+0530>-5:30": a name and how far it is from UTC.
    static bool IsZoneRule(const std::string& text) {
        const bool isQuoted = text.starts_with('<');
        const size_t end = isQuoted ? text.find('>') : text.find_first_of("+-0123456789,");
        if (end == std::string::npos || end < 3) return false;
        const std::string offset = text.substr(end + (isQuoted ? 1 : 0), 2);
        return offset.find_first_of("0123456789") <= (offset.find_first_of("+-") == 0 ? 1U : 0U);
    }

    void CheckZone() {
        const char* const own = std::getenv("TZ");
        const std::string ours = own ? own : "", theirs = Variable("TZ");
        const std::string name = !ours.empty() && ours.front() == ':' ? ours.substr(1) : ours;
        if (!name.empty() && !HasZoneTable(name) && !IsZoneRule(name))
            return Bad("zone", "TZ=\"" + ours + "\" is no zone: times are taken as UTC",
                       "choose one of timedatectl list-timezones");
        if (helper && helper->pid > 0 && ours != theirs)
            return Bad("zone",
                       "the helper was started with TZ=\"" + theirs + "\", this session has TZ=\"" + ours + "\"",
                       "schedulectl restart from where TZ is right");
        tm fields{};
        const time_t now = time(nullptr);
        std::array<char, 64> text{};
        localtime_r(&now, &fields);
        strftime(text.data(), text.size(), "%Z (UTC%z)", &fields);
        Good("zone", text.data());
    }

    void CheckShifts() {
        size_t shifted = 0;
        const ScheduleView* first = nullptr;
        for (const ScheduleView& view : overview->Schedules())
            if (view.forecast.none == NoStart::None && view.forecast.shiftSeconds != 0) {
                shifted++;
                if (!first) first = &view;
            }
        if (!first) return Good("shifts", "everything starts at the time of day that was asked for");
        const bool isFuture = NextStart(first->schedule, overview->Moment(), overview->Moment()).shiftSeconds != 0;
        Bad("shifts",
            std::to_string(shifted) + " shifted by a change of summer time or zone, first: " + first->schedule.name +
                " " + ShiftText(first->forecast.shiftSeconds),
            isFuture ? "schedulectl restart, once the change has come" : "schedulectl restart");
    }

    void CheckMissed() {
        std::vector<std::string> over;
        for (const ScheduleView& view : overview->Schedules())
            if (view.forecast.none == NoStart::Over &&
                (!helper || (helper->since > 0 && view.schedule.launch < helper->since)))
                over.push_back(view.schedule.name + " (" + LocalTimeText(view.schedule.Start()) + ")");
        if (over.empty()) return Good("missed", "no time passed while nothing ran");
        Bad("missed",
            std::to_string(over.size()) + " had their time before this helper ran, first: " + over.front() +
                "; if no other ran then, it was missed",
            "look whether it was recorded, then delete it");
    }

    void CheckNext() {
        const ScheduleView* const next = overview->Next();
        if (!next) return Skip("next", "nothing will be started");
        Good("next", next->schedule.name + " at " + LocalTimeText(next->forecast.Start()) + ", in " +
                         DurationText(next->forecast.launch - overview->Moment()));
    }

    const uint32_t timeoutMs;
    std::optional<Overview> overview;
    std::optional<HelperProcess> helper;
    std::vector<Finding> findings;
};

Row RowOf(const Finding& finding) {
    constexpr struct {
        const char* word;
        const char* text;
        Tone tone;
    } verdicts[] = {
        {"ok", "ok", Tone::Good}, {"not applicable", "not-applicable", Tone::Faint}, {"FAULT", "fault", Tone::Bad}};
    const auto& verdict = verdicts[static_cast<size_t>(finding.verdict)];
    const std::string remedy = finding.remedy.empty() ? "" : " -> " + finding.remedy;
    return {{{finding.check, Tone::Head}, {verdict.word, verdict.tone}, {finding.detail + remedy, Tone::Plain}},
            {{"check", finding.check},
             {"verdict", std::string(verdict.text)},
             {"detail", finding.detail},
             {"remedy", finding.remedy}}};
}

}  // namespace

int RunDoctor(const Options& options) {
    const Output output(options.style);
    const std::vector<Finding> findings = Examination(options.timeoutMs).Run();
    std::vector<Row> rows;
    rows.reserve(findings.size());
    for (const Finding& finding : findings) rows.push_back(RowOf(finding));
    const auto faults = std::count_if(findings.begin(), findings.end(),
                                      [](const Finding& finding) { return finding.verdict == Verdict::Bad; });
    output.Table({"CHECK", "", "FINDING"}, rows, "checks", {{"faults", int64_t{faults}}});
    if (faults == 0) return exitDone;
    output.Warning(std::to_string(faults) + (faults == 1 ? " fault" : " faults"));
    return exitFailure;
}

}  // namespace tools
