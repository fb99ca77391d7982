// Many schedules due at once: with the helper as a process, which must start Quillo once and go on answering, and with
// the scheduler alone, where each start and its lateness are seen.
#include "SteeredClock.h"
#include "Stress.h"

#include "UserDefaultsStore.h"
#include "app/LScheduleHelperKeys.h"
#include "home/Home.h"
#include "home/WireClient.h"
#include "scheduler/LGCDScheduler.h"

#include <AppKit/AppKit.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <latch>
#include <mutex>
#include <optional>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using tools::HelperRequest;
using tools::StoredSchedule;

constexpr time_t kFarAway = 4'102'444'800;  // 2100
constexpr double kSecondMs = 1000;

double NowMs() {
    return static_cast<double>(platform::CurrentClock().BootNs()) / 1e6;
}

struct Spread {
    double median = 0, p99 = 0, max = 0, min = 0;

    explicit Spread(std::vector<double> values) {
        if (values.empty()) return;
        std::sort(values.begin(), values.end());
        median = values[values.size() / 2];
        p99 = values[(values.size() * 99 + 99) / 100 - 1];
        min = values.front();
        max = values.back();
    }
};

std::vector<StoredSchedule> OneTimeSchedules(uint64_t count, const std::string& application, time_t launch) {
    std::vector<StoredSchedule> schedules;
    for (uint64_t i = 0; i < count; i++)
        schedules.push_back({kMainAppBundleId, application, std::to_string(i), launch, false, false, 0});
    return schedules;
}

// --- the scheduler alone ---------------------------------------------------------------------------------------------

// Notes when each schedule starts; their names are numbers.
class NotingScheduler final : public LGCDScheduler {
public:
    using LGCDScheduler::EvScheduleStart;

    explicit NotingScheduler(size_t count) : starts(count), startedNs(count), all(static_cast<ptrdiff_t>(count)) {}
    ~NotingScheduler() override { StopCallbacks(); }

    void EvScheduleStart(const char*, const char*, const char* skedName) override {
        const size_t i = std::stoul(skedName);
        startedNs[i] = platform::CurrentClock().BootNs();
        if (starts[i]++ == 0) all.count_down();
    }

    void AwaitAll() const { all.wait(); }
    bool EachOnce() const {
        return std::all_of(starts.begin(), starts.end(), [](const auto& n) { return n == 1; });
    }
    Spread LatenessMs(uint64_t dueNs) const {
        std::vector<double> late;
        for (const uint64_t started : startedNs)
            late.push_back((static_cast<double>(started) - static_cast<double>(dueNs)) / 1e6);
        return Spread(late);
    }

private:
    std::vector<std::atomic<int>> starts;
    std::vector<uint64_t> startedNs;  // each written once, before its count
    std::latch all;
};

// A disk that takes its time over every fsync from a moment on: until the test allows it to go on.
class HangingDisk final : public platform::FileCalls {
public:
    int Sync(int descriptor) override {
        std::unique_lock lock(mutex);
        waiting++;
        changed.notify_all();
        changed.wait(lock, [this] { return !hangs; });
        return FileCalls::Sync(descriptor);
    }
    void Hang(bool on) {
        const std::lock_guard lock(mutex);
        hangs = on;
        changed.notify_all();
    }
    void AwaitWaiting() {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return waiting > 0; });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool hangs = false;
    int waiting = 0;
};

// `count` schedules due at one moment. With `diskHangs` another one is being added all the while, and its fsync does
// not return before all have started.
void DueAtOnce(Stress& stress, size_t count, bool diskHangs) {
    const Home home;
    HangingDisk disk;
    SteeredClock clock(true);
    home.WriteStore(OneTimeSchedules(count, "/", clock.WallSeconds() + 1));
    platform::SetStandardUserDefaults(home.StorePath(), disk);
    NotingScheduler scheduler(count);
    scheduler.LoadFromSettings();
    disk.Hang(diskHangs);
    std::thread adding([&] {
        if (diskHangs) scheduler.Add("id", "/", "another", LDateTime(kFarAway), false, false, LWeekDay());
    });
    if (diskHangs) disk.AwaitWaiting();
    clock.Go();
    scheduler.AwaitAll();
    disk.Hang(false);
    adding.join();
    const Spread late = scheduler.LatenessMs(clock.StartNs() + 1'000'000'000);
    stress.Figure(Text("%zu due at one moment%s: each started once; late %.2f ms (median), %.2f (p99), %.2f (worst), "
                       "never early",
                       count, diskHangs ? " while an fsync hangs" : "", late.median, late.p99, late.max),
                  scheduler.EachOnce() && late.min >= 0 && late.max < 10 * kSecondMs);
}

// --- the helper as a process -----------------------------------------------------------------------------------------

// Clients that ask without end, each on a connection of its own, and note how long each answer took.
class Askers {
public:
    Askers(const Home& home, int count) {
        for (int i = 0; i < count; i++) threads.emplace_back([this, socket = home.ServiceSocket()] { Ask(socket); });
    }
    ~Askers() { Stop(); }
    Askers(const Askers&) = delete;
    Askers& operator=(const Askers&) = delete;

    Spread Stop() {
        stop = true;
        for (auto& thread : threads) thread.join();
        threads.clear();
        return Spread(answersMs);
    }
    size_t Answers() const { return answersMs.size(); }
    int Unanswered() const { return unanswered; }

private:
    void Ask(const std::string& socket) {
        WireClient client(socket);
        std::vector<double> own;
        for (int i = 0; !stop; i++) {
            const double asked = NowMs();
            if (!client.Ask(i % 2 ? HelperRequest::Test() : HelperRequest::MayQuit())) unanswered++;
            own.push_back(NowMs() - asked);
            usleep(1000);  // as people's programs ask, not as fast as can be
        }
        const std::lock_guard lock(mutex);
        answersMs.insert(answersMs.end(), own.begin(), own.end());
    }

    std::atomic<bool> stop{false};
    std::atomic<int> unanswered{0};
    std::mutex mutex;
    std::vector<double> answersMs;
    std::vector<std::thread> threads;
};

// A home in which Quillo runs, so that the helper serves, and a second Quillo, which schedules are to start.
struct Stage {
    Home home;
    const std::unique_ptr<Program> quillo = home.StartQuillo();
    const std::string other = home.CopyQuillo("other", "2.14");

    // When the other one was started, by its own log; throws when nothing was.
    std::vector<std::string> Starts() const {
        std::ifstream log(home.Environment().at("XDG_DATA_HOME") + "/Quillo/recordings.log");
        std::vector<std::string> starts;
        for (std::string line; std::getline(log, line);)
            if (line.find("(the helper)") != std::string::npos) starts.push_back(line);
        return starts;
    }
    // Asks until no schedule is in memory: all one-time ones have fired.
    bool AwaitNoSchedules() const {
        WireClient client(home.ServiceSocket());
        for (const double deadline = NowMs() + 60 * kSecondMs; NowMs() < deadline; usleep(1000))
            if (client.Ask(HelperRequest::MayQuit()) == true) return true;
        return false;
    }
};

double WallMs() {
    timespec t{};
    clock_gettime(CLOCK_REALTIME, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
}

void DueInTheHelper(Stress& stress, uint64_t count) {
    Stage stage;
    const time_t launch = time(nullptr) + 5;
    stage.home.WriteStore(OneTimeSchedules(count, stage.other, launch));
    const auto helper = stage.home.StartHelper();
    Askers askers(stage.home, 4);
    const bool allFired = stage.AwaitNoSchedules();
    const double doneMs = WallMs() - static_cast<double>(launch) * 1e3;
    const Spread answers = askers.Stop();
    helper->AwaitOutput("(the helper)");
    const size_t starts = stage.Starts().size();
    stress.Figure(Text("%llu due in one second in the helper: %s; started Quillo %zu times; through %.0f ms after the "
                       "second began",
                       static_cast<unsigned long long>(count), allFired ? "all fired" : "NOT all fired", starts,
                       doneMs),
                  allFired && starts == 1 && doneMs >= 0);
    stress.Figure(Text("%zu requests meanwhile, %d unanswered: %.2f ms (median), %.2f (p99), %.2f (worst)",
                       askers.Answers(), askers.Unanswered(), answers.median, answers.p99, answers.max),
                  askers.Unanswered() == 0 && answers.p99 < 100);
}

// A helper with many schedules far away serves, adds and starts as one with few does.
void ManyStored(Stress& stress, size_t count) {
    Stage stage;
    const time_t launch = time(nullptr) + 5;
    auto schedules = OneTimeSchedules(count, stage.other, kFarAway);
    schedules.push_back({kMainAppBundleId, stage.other, "due", launch, false, false, 0});
    stage.home.WriteStore(schedules);
    const double startedMs = NowMs();
    const auto helper = stage.home.StartHelper();
    const double servesMs = NowMs() - startedMs;

    WireClient client(stage.home.ServiceSocket());
    std::vector<double> addsMs;
    const tools::Application application{kMainAppBundleId, stage.other};
    for (int i = 0; i < 50; i++) {
        const double askedMs = NowMs();
        client.Send(HelperRequest::Add(application, {"added " + std::to_string(i), kFarAway, false, false, 0}));
        client.Ask(HelperRequest::Test());  // answered when the add before it is done
        addsMs.push_back(NowMs() - askedMs);
    }
    const size_t stored = stage.home.Stored().size();
    Askers askers(stage.home, 4);
    const bool started = helper->AwaitOutput("(the helper)");
    const double lateMs = WallMs() - static_cast<double>(launch) * 1e3;
    const Spread answers = askers.Stop(), adds(addsMs);
    stress.Figure(Text("%zu stored: serves after %.0f ms; 50 adds, %.1f ms each (median), %zu stored then; due one %s "
                       "%.0f ms after its second began",
                       count, servesMs, adds.median, stored, started ? "started Quillo" : "did NOT start Quillo",
                       lateMs),
                  stored == count + 51 && started && lateMs >= 0 && lateMs < 2 * kSecondMs);
    stress.Figure(Text("%zu requests meanwhile, %d unanswered: %.2f ms (p99)", askers.Answers(), askers.Unanswered(),
                       answers.p99),
                  askers.Unanswered() == 0 && answers.p99 < 100);
}

// Applications that end at once, started one after the other by this process.
void Launches(Stress& stress, uint64_t count) {
    const TempFolder folder;
    const std::string path = folder.WriteBundle("Short.app", "com.example.short");
    std::filesystem::copy_file("/bin/true", path + "/Contents/Linux/run");
    const NSString bundle(path);
    const auto hasChild = [] {
        siginfo_t info;
        return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
    };
    uint64_t failed = 0, zombies = 0;
    const double startMs = NowMs();
    for (uint64_t i = 0; i < count; i++) {
        if (!NSWorkspace::sharedWorkspace().launchApplication(bundle)) failed++;
        const double deadline = NowMs() + 10 * kSecondMs;
        while (hasChild() && NowMs() < deadline) sched_yield();
        if (hasChild()) zombies++;
    }
    stress.Figure(Text("%llu launches of an application that ends at once: %llu failed, %llu left behind, %.2f ms each",
                       static_cast<unsigned long long>(count), static_cast<unsigned long long>(failed),
                       static_cast<unsigned long long>(zombies), (NowMs() - startMs) / static_cast<double>(count)),
                  failed == 0 && zombies == 0);
}

}  // namespace

int main(int argc, char** argv) {
    Stress stress("fire-storm", 1'000, argc, argv);
    Launches(stress, stress.Count());  // first: it looks at all children
    DueAtOnce(stress, stress.Count(), false);
    DueAtOnce(stress, stress.Count(), true);
    DueAtOnce(stress, 10 * stress.Count(), false);
    DueInTheHelper(stress, stress.Count());
    ManyStored(stress, 10 * stress.Count());
    return stress.Status();
}
