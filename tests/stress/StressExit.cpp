// Ends of the helper under load: eight clients add, delete and ask, schedules start, and then it is told to end, in
// every way there is and in two at once. It must end at once with status 0, a sanitizer must have nothing to say, and
// the store must be whole and hold every schedule whose add was answered.
//
//   stress_exit as-helper    is that helper, but refuses every peer from SIGUSR1 on
#include "Stress.h"

#include "MainBundle.h"
#include "SingleInstance.h"
#include "XPCConnection.h"
#include "app/LScheduleHelper.h"
#include "home/Home.h"
#include "home/WireClient.h"

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using tools::HelperRequest;

const NSApplicationDelegateClass delegate([] { return std::make_unique<LScheduleHelper>(); });

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr double kMostSeconds = 5;
#else
constexpr double kMostSeconds = 1;
#endif
constexpr double kPatienceSeconds = 0.5;    // for handlers that run
constexpr time_t kFarAway = 4'102'444'800;  // 2100

constexpr int kDue = 30;  // schedules that start meanwhile

std::string DueName(int number) {
    return "due " + std::to_string(number);
}

double Seconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// What the clients were told: names of schedules that the store must hold, and of those that it must not hold any more.
class Answered {
public:
    void Added(const std::string& name) { Note(stored, name); }
    void Deleted(const std::string& name) { Note(gone, name); }
    size_t Count() {
        const std::lock_guard lock(mutex);
        return stored.size() + gone.size();
    }
    // What is wrong with the store, or "".
    std::string FaultOf(const std::string& storePath) {
        const auto schedules = tools::ReadStore(storePath);
        if (!schedules) return "the store can't be read";
        std::set<std::string> names;
        for (const auto& schedule : *schedules) names.insert(schedule.name);
        const std::lock_guard lock(mutex);
        for (const std::string& name : stored)
            if (!names.contains(name)) return "the store has lost " + name;
        for (const std::string& name : gone)
            if (names.contains(name)) return "the store has kept " + name;
        return "";
    }

private:
    void Note(std::set<std::string>& names, const std::string& name) {
        const std::lock_guard lock(mutex);
        names.insert(name);
    }

    std::mutex mutex;
    std::set<std::string> stored, gone;
};

// Eight clients of a serving helper (four change schedules, three ask, one comes and goes), or four processes that ask
// one that doesn't serve to look again.
class Load {
public:
    Load(const Home& home, const std::string& application, bool serving) : app{"com.example.light", application} {
        if (serving)
            for (int i = 0; i < 8; i++) threads.emplace_back([this, i, path = home.ServiceSocket()] { Ask(i, path); });
        else
            for (int i = 0; i < 4; i++) threads.emplace_back([this, path = home.StorePath()] { AskToReopen(path); });
    }
    ~Load() { Stop(); }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    void Stop() {
        stop = true;
        for (auto& thread : threads) thread.join();
        threads.clear();
    }
    Answered answered;

private:
    void Ask(int number, const std::string& path) {
        WireClient client(path);
        for (int i = 0; !stop; i++) {
            const std::string name = "client " + std::to_string(number) + " schedule " + std::to_string(i);
            if (number == 7 ? !ComeAndGo(path) : number % 2 ? !Look(client) : !Change(client, name, i)) return;
        }
    }
    // Adds a schedule, due in a second or never, and deletes every third one again.
    bool Change(WireClient& client, const std::string& name, int i) {
        const time_t start = i % 2 ? kFarAway : time(nullptr) + 11;
        client.Send(HelperRequest::Add(app, {name, start, false, false, 0}));
        if (!client.Ask(HelperRequest::Test())) return false;
        if (i % 3 != 0) {
            answered.Added(name);
            return true;
        }
        client.Send(HelperRequest::Delete(app, name));
        if (!client.Ask(HelperRequest::Test())) return false;
        answered.Deleted(name);
        return true;
    }
    static bool Look(WireClient& client) { return client.Ask(HelperRequest::MayQuit()).has_value(); }
    static bool ComeAndGo(const std::string& path) { return WireClient(path).Send(HelperRequest::Test()); }
    // Where the helper has ended, this gets its lock and gives it back.
    void AskToReopen(const std::string& store) const {
        while (!stop) platform::SingleInstance(store).Claim(100);
    }

    const tools::Application app;
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
};

// One way to end.
struct Kind {
    const char* name;
    bool serving;
    void (*end)(const Program& helper, const std::string& socket);
};

void Quit(const std::string& socket) {
    WireClient(socket).Send(HelperRequest::Quit());
}

// Both at once, as far as two threads can.
void Together(const std::function<void()>& one, const std::function<void()>& other) {
    std::thread beside(other);
    one();
    beside.join();
}

constexpr char kRefused[] = "refused peer";

const std::array kKinds = {
    Kind{"SIGTERM", true, [](const Program& helper, const std::string&) { helper.Signal(SIGTERM); }},
    Kind{"SIGINT", true, [](const Program& helper, const std::string&) { helper.Signal(SIGINT); }},
    Kind{"quit request", true, [](const Program&, const std::string& socket) { Quit(socket); }},
    Kind{kRefused, true,
         [](const Program& helper, const std::string& socket) {
             helper.Signal(SIGUSR1);
             while (WireClient(socket).IsConnected()) std::this_thread::yield();
         }},
    Kind{"end of the loop", false, [](const Program& helper, const std::string&) { helper.Signal(SIGTERM); }},
    Kind{"SIGTERM + quit", true,
         [](const Program& helper, const std::string& socket) {
             Together([&] { helper.Signal(SIGTERM); }, [&] { Quit(socket); });
         }},
    Kind{"SIGTERM + SIGINT", true,
         [](const Program& helper, const std::string&) {
             Together([&] { helper.Signal(SIGTERM); }, [&] { helper.Signal(SIGINT); });
         }},
    Kind{"quit + quit", true,
         [](const Program&, const std::string& socket) { Together([&] { Quit(socket); }, [&] { Quit(socket); }); }},
};

// The place where ends are tried: a home, Quillo when it is to run, and an application that ends at once.
class Stage {
public:
    Stage() { fs::copy_file("/bin/true", LightProgram()); }

    const std::string& LightBundle() const { return bundle; }
    std::string LightProgram() const { return bundle + "/Contents/Linux/run"; }

    // A helper with schedules that are due in the next three seconds.
    std::unique_ptr<Program> StartHelper(bool serving, bool refusing) {
        if (!serving) quillo.reset();
        if (serving && !quillo) quillo = home.StartQuillo();
        std::vector<tools::StoredSchedule> schedules;
        for (int i = 0; i < kDue; i++)
            schedules.push_back({"com.example.light", bundle, DueName(i), time(nullptr) + 1 + i % 3, false, false, 0});
        home.WriteStore(schedules);
        const std::vector<std::string> refusingHelper{fs::read_symlink("/proc/self/exe"), "as-helper"};
        if (serving) return refusing ? home.StartHelper(refusingHelper) : home.StartHelper();
        auto helper = std::make_unique<Program>(std::vector{Home::HelperProgram()}, home.Environment());
        if (!home.AwaitHelper()) throw std::runtime_error("the helper does not come up: " + helper->Output());
        return helper;
    }

    Home home;

private:
    const TempFolder light;
    const std::string bundle = light.WriteBundle("Light.app", "com.example.light");
    std::unique_ptr<Program> quillo;
};

// What a sanitizer, or anything but starts and ends, wrote.
std::string Complaint(const std::string& output) {
    for (const char* mark : {"Sanitizer", "runtime error", "terminate called"})
        if (output.find(mark) != std::string::npos) return output;
    return "";
}

struct Result {
    std::string fault;
    double seconds = 0;
    size_t answered = 0;
};

Result FaultOrEnd(Program& helper, double since) {
    const int status = helper.AwaitEnd();
    Result result;
    result.seconds = Seconds() - since;
    if (status == -1)
        result.fault = "does not end";
    else if (status != 0)
        result.fault = "status " + std::to_string(status) + ": " + helper.Output();
    else
        result.fault = Complaint(helper.Output());
    return result;
}

Result EndUnderLoad(Stage& stage, const Kind& kind, uint64_t seed) {
    const auto helper = stage.StartHelper(kind.serving, kind.name == kRefused);
    Load load(stage.home, stage.LightBundle(), kind.serving);
    for (int i = 0; i < kDue; i++) load.answered.Added(DueName(i));
    std::mt19937_64 random(seed);
    usleep(static_cast<useconds_t>(random() % 1'200'000));  // any moment will do
    const double since = Seconds();
    kind.end(*helper, stage.home.ServiceSocket());
    Result result = FaultOrEnd(*helper, since);
    load.Stop();
    result.answered = load.answered.Count();
    if (result.fault.empty()) result.fault = load.answered.FaultOf(stage.home.StorePath());
    if (result.fault.empty() && result.seconds > kMostSeconds)
        result.fault = "takes " + std::to_string(result.seconds) + " s";
    return result;
}

// A start that hangs: the program of its application is being written, for longer than anybody waits.
Result EndWhileAStartHangs(Stage& stage) {
    const platform::Descriptor writing(open(stage.LightProgram().c_str(), O_WRONLY | O_CLOEXEC));
    const auto helper = stage.StartHelper(true, false);
    if (!helper->AwaitOutput("cannot be launched yet")) return {"no start hangs: " + helper->Output(), 0, 0};
    const double since = Seconds();
    helper->Signal(SIGTERM);
    Result result = FaultOrEnd(*helper, since);
    if (result.fault.empty() && result.seconds < kPatienceSeconds) result.fault = "the start was not waited for";
    if (result.fault.empty() && result.seconds > kPatienceSeconds + kMostSeconds)
        result.fault = "takes " + std::to_string(result.seconds) + " s";
    return result;
}

struct Sum {
    uint64_t ends = 0, faults = 0, answered = 0;
    double worst = 0, total = 0;

    void Add(const Result& result) {
        ends++;
        faults += !result.fault.empty();
        answered += result.answered;
        total += result.seconds;
        worst = std::max(worst, result.seconds);
    }
    void Print(Stress& stress, const std::string& name) const {
        if (ends == 0) return;
        char text[200];
        snprintf(text, sizeof text, "%s: %llu ends, %llu bad; %.2f s (mean), %.2f (worst); %llu answered changes kept",
                 name.c_str(), static_cast<unsigned long long>(ends), static_cast<unsigned long long>(faults),
                 total / static_cast<double>(ends), worst, static_cast<unsigned long long>(answered));
        stress.Figure(text, faults == 0);
    }
};

int AsHelper(int argc, char** argv) {
    signal(SIGUSR1, [](int) { platform::SetReportedPeerPid(100'000); });
    platform::SetMainBundleRoot(BUILD_FOLDER "/schedulehelper.app");
    return NSApplicationMain(argc, argv);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "as-helper") == 0) return AsHelper(argc, argv);
    Stress stress("exit", 48, argc, argv);
    setenv("TSAN_OPTIONS", "atexit_sleep_ms=300", 0);  // what threads still do at the end shows in it
    Stage stage;
    std::array<Sum, kKinds.size()> sums;
    for (uint64_t i = 0; i < stress.Count(); i++) {
        const uint64_t seed = stress.Seed() + i;
        const size_t kind = seed % kKinds.size();
        const Result result = EndUnderLoad(stage, kKinds[kind], seed);
        sums[kind].Add(result);
        if (!result.fault.empty()) stress.Fail(std::string(kKinds[kind].name) + ": " + result.fault, 1, seed);
        while (waitpid(-1, nullptr, WNOHANG) > 0) continue;  // what helpers left behind, where this is process 1
    }
    for (size_t kind = 0; kind < kKinds.size(); kind++) sums[kind].Print(stress, kKinds[kind].name);
    Sum hanging;
    for (uint64_t i = 0; i < std::max<uint64_t>(stress.Count() / kKinds.size() / 3, 1); i++) {
        const Result result = EndWhileAStartHangs(stage);
        hanging.Add(result);
        if (!result.fault.empty()) stress.Figure("while a start hangs: " + result.fault, false);
    }
    hanging.Print(stress, "while a start hangs");
    return stress.Status();
}
