#include "CommandParts.h"
#include "common/ScheduleText.h"
#include "common/StopSignal.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <map>
#include <optional>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tools {

namespace {

// The other screen of the terminal, without cursor and without wrapping, for as long as it lives.
class Screen {
public:
    explicit Screen(const Output& to) : output(to) { Enter(); }
    ~Screen() { Leave(); }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    void Enter() const { Write("\033[?1049h\033[?25l\033[?7l"); }
    void Leave() const { Write("\033[?7h\033[?25h\033[?1049l"); }
    // As many of the lines as there is room for.
    void Show(std::string text) const {
        winsize size{};
        if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0) {
            size_t end = 0;
            for (int row = 0; row < size.ws_row && end != std::string::npos; row++)
                end = text.find('\n', end + (row > 0));
            if (end != std::string::npos) text.resize(end);
        }
        Write("\033[H\033[J" + text);
    }

private:
    void Write(const std::string& bytes) const {
        output.Raw(bytes);
        std::fflush(stdout);
    }

    const Output& output;
};

std::string Drawing(const Output& output) {
    const auto now = Overview::Now();
    if (!now) return "the store " + StorePath() + " can't be read\n";
    const Overview& overview = *now;
    std::string text = LocalTimeText(overview.Moment()) + "   " +
                       (overview.Helper() ? "the helper runs" : "NO HELPER RUNS: nothing will be started") +
                       "   (Ctrl-C ends)\n";
    if (const ScheduleView* next = overview.Next())
        text += "next: " + Printable(next->schedule.name) + " in " +
                DurationText(next->forecast.launch - overview.Moment()) + "\n";
    return text + "\n" +
           output.TableText(ScheduleHeads(overview.Schedules()),
                            ScheduleRows(overview.Schedules(), overview.Moment(), false));
}

using Key = std::string;

Key KeyOf(const StoredSchedule& schedule) {
    return schedule.bundleId + '\n' + schedule.appPath + '\n' + schedule.name;
}

// What happens, told by comparing what is with what was.
class Events {
public:
    explicit Events(const Output& to) : output(to) {}

    void Look() {
        const auto overview = Overview::Now();
        if (!overview) {
            if (std::exchange(isReadable, false)) Tell("unreadable", "the store can't be read", {});
            return;
        }
        isReadable = true;
        if (const bool runs = overview->Helper().has_value(); runs != helperRuns || isFirst)
            Tell(runs ? "helper-runs" : "helper-gone", runs ? "the helper runs" : "no helper runs", {});
        helperRuns = overview->Helper().has_value();
        std::map<Key, ScheduleView> present;
        for (const ScheduleView& view : overview->Schedules()) present.emplace(KeyOf(view.schedule), view);
        for (const auto& [key, view] : known) {
            if (!present.contains(key)) TellOf("deleted", view, overview->Moment());
            // Before a change is told: it may be the start that led to it.
            if (view.forecast.none == NoStart::None && view.forecast.launch <= overview->Moment())
                TellOf(!helperRuns ? "missed" : view.isStarted ? "launch" : "not-started", view, view.forecast.launch);
        }
        for (const auto& [key, view] : present) {
            const auto before = known.find(key);
            if (before == known.end())
                TellOf(isFirst ? "stored" : "added", view, overview->Moment());
            else if (before->second.schedule != view.schedule)
                TellOf("changed", view, overview->Moment());
        }
        known = std::move(present);
        isFirst = false;
    }

private:
    void Tell(const char* event, const std::string& sentence, Record record) const {
        const time_t now = time(nullptr);
        record.emplace_back("event", std::string(event));
        record.emplace_back("time", int64_t{now});
        output.Event(LocalTimeText(now) + "  " + sentence, std::move(record));
    }
    void TellOf(const char* event, const ScheduleView& view, time_t now) const {
        const std::string next =
            view.forecast.none == NoStart::None ? ", start " + LocalTimeText(view.forecast.Start()) : std::string();
        Tell(event, std::string(event) + "  " + view.schedule.name + next, ScheduleRecord(view, now));
    }

    const Output& output;
    std::map<Key, ScheduleView> known;
    bool isFirst = true;
    bool isReadable = true;
    bool helperRuns = false;
};

}  // namespace

int RunWatch(const Options& options) {
    using namespace std::chrono;
    const Output output(options.style);
    const auto span = options.span.empty() ? std::optional<time_t>(0) : ParseDuration(options.span);
    if (!span) return output.Error(exitUsage, "no such length of time: " + options.span + " (30d, 12h, 90min, 45s)");
    BlockStopSignals();
    const auto end = steady_clock::now() + seconds(*span);
    const auto isOver = [&] { return *span > 0 && steady_clock::now() >= end; };
    // Just after each second of the clock: countdowns change then.
    const auto toNextSecond = [] {
        const auto now = system_clock::now().time_since_epoch();
        return duration<double>(ceil<seconds>(now + milliseconds(1)) - now).count();
    };
    std::optional<Screen> screen;
    if (isatty(STDOUT_FILENO) && !output.IsJson()) screen.emplace(output);
    Events events(output);
    do {
        if (screen)
            screen->Show(Drawing(output));
        else
            events.Look();
        const int signal = AwaitSignal(toNextSecond());
        if (signal == SIGTSTP) {
            if (screen) screen->Leave();
            raise(SIGSTOP);
            if (screen) screen->Enter();
        } else if (signal != 0) {
            break;
        }
    } while (!isOver());
    return exitDone;
}

}  // namespace tools
