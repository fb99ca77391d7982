// simulate: the helper's own scheduler on a virtual clock.
#include "CommandParts.h"
#include "common/Folders.h"
#include "common/ScheduleText.h"
#include "scheduler/LGCDScheduler.h"

#include "UserDefaultsStore.h"
#include "VirtualClock.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <tuple>
#include <unistd.h>

namespace tools {

namespace {

namespace fs = std::filesystem;

using Key = std::tuple<std::string, std::string, std::string>;

// What happens to the machine at a moment.
struct Turn {
    time_t at = 0;
    time_t awake = 0;  // it sleeps until then; 0: the helper is started again
};

struct Plan {
    time_t begin = 0;
    time_t end = 0;
    std::vector<Turn> turns;  // in order
};

// The helper's scheduler; its starts are noted.
class Scheduler final : public LGCDScheduler {
public:
    using LGCDScheduler::EvScheduleStart;
    explicit Scheduler(std::map<Key, std::vector<time_t>>& noted) : starts(noted) { LoadFromSettings(); }
    ~Scheduler() override { StopCallbacks(); }
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;
    void EvScheduleStart(const char* appBundleId, const char* appPath, const char* skedName) override {
        starts[{appBundleId, appPath, skedName}].push_back(platform::CurrentClock().WallSeconds());
    }

private:
    std::map<Key, std::vector<time_t>>& starts;
};

// A copy of the store, which the scheduler may write to. The store itself stays as it is.
class StoreCopy {
public:
    StoreCopy() {
        std::error_code ignored;
        std::string name = fs::temp_directory_path(ignored) / "schedulectl.XXXXXX";
        if (!ignored && mkdtemp(name.data())) folder = name;
    }
    ~StoreCopy() {
        platform::SetStandardUserDefaults("/nonexistent/store.plist");
        std::error_code ignored;
        if (!folder.empty()) fs::remove_all(folder, ignored);
    }
    StoreCopy(const StoreCopy&) = delete;
    StoreCopy& operator=(const StoreCopy&) = delete;

    bool Make() const {
        if (folder.empty()) return false;
        std::error_code error;
        if (!fs::exists(StorePath(), error)) return true;
        return fs::copy_file(StorePath(), Path(), error);
    }
    std::string Path() const { return folder + "/store.plist"; }

private:
    std::string folder;
};

// Starts of a helper that begins now and goes through the turns.
std::map<Key, std::vector<time_t>> Play(const Plan& plan, const std::string& store) {
    std::map<Key, std::vector<time_t>> starts;
    platform::VirtualClock clock(plan.begin);
    std::unique_ptr<Scheduler> scheduler;
    const auto start = [&] {
        scheduler.reset();
        platform::SetStandardUserDefaults(store);  // read anew, as a new process does
        scheduler = std::make_unique<Scheduler>(starts);
    };
    start();
    for (const Turn& turn : plan.turns) {
        if (turn.at < clock.WallSeconds() || turn.at > plan.end) continue;
        clock.Advance(turn.at - clock.WallSeconds());
        if (turn.awake == 0)
            start();
        else
            clock.Sleep(turn.awake - turn.at);
    }
    if (clock.WallSeconds() < plan.end) clock.Advance(plan.end - clock.WallSeconds());
    return starts;
}

struct Happening {
    time_t at = 0;  // of the start, or when it was due
    const ScheduleView* view = nullptr;
    enum class Kind { Start, Late, Missed, NotStarted } kind = Kind::Start;
    time_t due = 0;
};

// The moments at which a schedule would have been due on a machine that never sleeps: from each start of the helper on
// planned anew.
std::vector<time_t> Dues(const StoredSchedule& schedule, const Plan& plan) {
    std::vector<time_t> dues;
    time_t from = plan.begin;
    const auto take = [&](time_t to) {
        const auto part = DueMoments(schedule, from, from, to);
        dues.insert(dues.end(), part.begin(), part.end());
        from = to;
    };
    time_t awake = plan.begin;  // a turn during a sleep isn't played
    for (const Turn& turn : plan.turns) {
        if (turn.at < awake || turn.at > plan.end) continue;
        if (turn.awake == 0) take(turn.at);
        awake = std::max(awake, turn.awake);
    }
    take(plan.end);
    return dues;
}

// Each start with what it was due for, from the last one back: of several moments that were slept through the last one
// counts, the others are missed.
void Judge(const ScheduleView& view, const std::vector<time_t>& dues, std::vector<time_t> starts,
           std::vector<Happening>& happenings) {
    using enum Happening::Kind;
    std::sort(starts.begin(), starts.end());
    for (auto due = dues.rbegin(); due != dues.rend(); ++due) {
        if (starts.empty() || starts.back() < *due) {
            happenings.push_back({*due, &view, Missed, *due});
            continue;
        }
        const time_t start = starts.back();
        starts.pop_back();
        happenings.push_back({start, &view, !view.isStarted ? NotStarted : start > *due ? Late : Start, *due});
    }
}

Row RowOf(const Happening& happening) {
    constexpr struct {
        const char* word;
        Tone tone;
    } kinds[] = {{"start", Tone::Good}, {"late", Tone::Attention}, {"missed", Tone::Bad}, {"not started", Tone::Bad}};
    const auto& kind = kinds[static_cast<size_t>(happening.kind)];
    const StoredSchedule& schedule = happening.view->schedule;
    const long shift = ShiftSeconds(schedule, happening.due);
    std::string note;
    if (happening.kind == Happening::Kind::Late) note = "asleep when due at " + LocalTimeText(happening.due);
    if (happening.kind == Happening::Kind::Missed) note = "asleep, and due again before it woke";
    if (happening.kind == Happening::Kind::NotStarted) note = happening.view->notes.back();
    if (shift != 0) note += (note.empty() ? "" : "; ") + ShiftText(shift) + " by the clock on the wall";
    const time_t launch = happening.at;
    return {{{LocalTimeText(launch)},
             {kind.word, kind.tone},
             {schedule.name},
             {schedule.appPath, Tone::Faint},
             {note, Tone::Attention}},
            {{"launch", int64_t{launch}},
             {"launchText", LocalTimeText(launch)},
             {"due", int64_t{happening.due}},
             {"event", std::string(kind.word)},
             {"name", schedule.name},
             {"application", schedule.appPath},
             {"shiftSeconds", int64_t{shift}},
             {"note", note}}};
}

bool IsTimeOfDay(const std::string& text) {
    return text.size() > 2 && text[2] == ':';
}

// FROM..TO into turns; times of day come every day. False: it is no such thing.
bool AddSleep(const std::string& text, Plan& plan) {
    const size_t dots = text.find("..");
    if (dots == std::string::npos) return false;
    const std::string from = text.substr(0, dots), to = text.substr(dots + 2);
    auto begin = ParseStartTime(from, plan.begin);
    if (!begin || from == to) return false;
    do {
        const auto end = ParseStartTime(to, *begin);
        if (!end || *end <= *begin) return false;
        plan.turns.push_back({*begin, *end});
        begin = IsTimeOfDay(from) ? ParseStartTime(from, *end) : std::nullopt;
    } while (begin && *begin <= plan.end);
    return true;
}

// In order; sleeps that overlap are one, and one that has begun already begins now.
void Arrange(Plan& plan) {
    for (Turn& turn : plan.turns)
        if (turn.awake > plan.begin) turn.at = std::max(turn.at, plan.begin);
    std::sort(plan.turns.begin(), plan.turns.end(), [](const Turn& a, const Turn& b) { return a.at < b.at; });
    std::vector<Turn> joined;
    joined.reserve(plan.turns.size());  // none moves
    Turn* sleep = nullptr;
    for (const Turn& turn : plan.turns) {
        if (turn.awake != 0 && sleep && turn.at <= sleep->awake) {
            sleep->awake = std::max(sleep->awake, turn.awake);
            continue;
        }
        joined.push_back(turn);
        if (turn.awake != 0) sleep = &joined.back();
    }
    plan.turns = std::move(joined);
}

bool AddRestarts(const std::string& text, Plan& plan) {
    if (!IsTimeOfDay(text)) return false;
    auto at = ParseStartTime(text, plan.begin);
    if (!at) return false;
    for (; at && *at <= plan.end; at = ParseStartTime(text, *at)) plan.turns.push_back({*at, 0});
    return true;
}

}  // namespace

int RunSimulate(const Options& options) {
    const Output output(options.style);
    if (!options.zone.empty()) {
        if (options.zone.starts_with('/') || !HasZoneTable(options.zone))
            return output.Error(exitUsage, "no such zone: " + options.zone);
        setenv("TZ", options.zone.c_str(), 1);
        tzset();
    }
    const auto span = ParseDuration(options.span);
    if (!span) return output.Error(exitUsage, "no such length of time: " + options.span + " (30d, 12h, 90min, 45s)");
    Plan plan;
    plan.begin = time(nullptr);
    plan.end = plan.begin + *span;
    for (const std::string& sleep : options.sleeps)
        if (!AddSleep(sleep, plan))
            return output.Error(exitUsage,
                                "no such sleep: " + sleep + " (2026-12-01T23:00..2026-12-02T07:00, 23:00..07:00)");
    if (!options.restart.empty() && !AddRestarts(options.restart, plan))
        return output.Error(exitUsage, "no such time of day: " + options.restart + " (04:10)");
    Arrange(plan);
    // What it sleeps through is known when it wakes only.
    const time_t end = plan.end;
    for (const Turn& turn : plan.turns)
        if (turn.at <= end) plan.end = std::max(plan.end, turn.awake);

    auto overview = Overview::Now();
    if (!overview) return UnreadableStore(output);
    const StoreCopy copy;
    if (!copy.Make()) return output.Error(exitFailure, "the store can't be copied to a temporary folder ($TMPDIR)");
    const auto starts = Play(plan, copy.Path());
    std::vector<Happening> happenings;
    std::vector<ScheduleView> views;
    for (const ScheduleView& view : overview->Schedules()) views.push_back(overview->View(view.schedule, plan.begin));
    for (const ScheduleView& view : views) {
        const StoredSchedule& schedule = view.schedule;
        const auto found = starts.find({schedule.bundleId, schedule.appPath, schedule.name});
        const bool isDropped = access(schedule.appPath.c_str(), F_OK) != 0;  // as the scheduler is started
        Judge(view, isDropped ? std::vector<time_t>() : Dues(schedule, plan),
              found == starts.end() ? std::vector<time_t>() : found->second, happenings);
        for (const std::string& note : view.notes)
            if (view.forecast.none != NoStart::None || isDropped) output.Warning(schedule.name + ": " + note);
    }
    std::stable_sort(happenings.begin(), happenings.end(),
                     [](const Happening& a, const Happening& b) { return a.at < b.at; });
    std::vector<Row> rows;
    rows.reserve(happenings.size());
    for (const Happening& happening : happenings) rows.push_back(RowOf(happening));
    std::vector<std::string> heads = {"LAUNCH", "", "NAME", "APPLICATION", "NOTE"};
    if (std::all_of(rows.begin(), rows.end(), [](const Row& row) { return row.cells.back().text.empty(); })) {
        heads.pop_back();
        for (Row& row : rows) row.cells.pop_back();
    }
    output.Table(heads, std::move(rows), "events", {{"from", int64_t{plan.begin}}, {"to", int64_t{plan.end}}});
    return exitDone;
}

}  // namespace tools
