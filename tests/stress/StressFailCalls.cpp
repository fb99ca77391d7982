// Every system call fails, once and for good: each file call of the store in sequences of two requests, and each call
// in a whole life of the helper: start, load, serve, add, replace, delete, reopen, fire, end. --count: the lives of a
// helper, drawn from all of them; more than there are tries them all.
#include "Stress.h"
#include "app/LScheduleHelperKeys.h"
#include "failing/FailingCalls.h"
#include "home/Home.h"
#include "home/WireClient.h"
#include "support/CrashStates.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <poll.h>
#include <set>
#include <sys/stat.h>
#include <thread>

namespace {

using tools::HelperRequest;
using tools::StoredSchedule;
using Clock = std::chrono::steady_clock;

constexpr int kLivesAtATime = 16;  // most of a life is waiting
constexpr int kFarSeconds = 1'000'000;
constexpr int kDueSeconds = 3;   // after the begin of a life: later than any start takes
constexpr int kLateSeconds = 8;  // patience for a start
constexpr int kPatienceMs = 3'000;

struct Fault {
    size_t call;  // of kFailingCalls
    uint32_t number;
    int error;
    bool forGood;

    std::string Text() const {
        return std::string(kFailingCalls[call].name) + " " + std::to_string(number) + " fails " +
               (forGood ? "for good: " : "once: ") + (error ? strerror(error) : "short");
    }
};

// What may stand in the store under each name, nothing among it; and what the helper must have in mind.
class Expectation {
public:
    void Begin(const StoredSchedule& schedule) {
        wanted[schedule.name] = schedule;
        possible[schedule.name] = {schedule};
    }
    void Asked(const std::string& name, const std::optional<StoredSchedule>& after) {
        wanted[name] = after;
        possible.try_emplace(name, 1).first->second.push_back(after);
    }
    // A client has looked into the store and found there what it had asked for.
    void Acknowledged(const std::string& name) { possible[name] = {wanted[name]}; }

    static std::optional<StoredSchedule> In(const std::vector<StoredSchedule>& stored, const std::string& name) {
        const auto found = std::find_if(stored.begin(), stored.end(), [&](const auto& s) { return s.name == name; });
        return found == stored.end() ? std::nullopt : std::optional(*found);
    }
    bool IsWanted(const std::vector<StoredSchedule>& stored, const std::string& name) const {
        return In(stored, name) == wanted.at(name);
    }
    bool IsAllWanted(const std::vector<StoredSchedule>& stored) const {
        return std::all_of(wanted.begin(), wanted.end(), [&](const auto& w) { return IsWanted(stored, w.first); });
    }
    bool IsPossible(const std::vector<StoredSchedule>& stored) const {
        return std::all_of(possible.begin(), possible.end(), [&](const auto& p) {
            return std::find(p.second.begin(), p.second.end(), In(stored, p.first)) != p.second.end();
        });
    }

private:
    std::map<std::string, std::optional<StoredSchedule>> wanted;
    std::map<std::string, std::vector<std::optional<StoredSchedule>>> possible;
};

// An application whose start can be waited for. Made before there are threads: a program file that a process started
// meanwhile holds open could not be started.
class DueApplication {
public:
    DueApplication() {
        folder.WriteBundle("Due.app", "com.example.due");
        const std::string program = folder.Write("Due.app/Contents/Linux/run", "#!/bin/sh\necho >\"${0%/*}/starts\"\n");
        chmod(program.c_str(), 0755);
        const std::string name = folder.Join("Due.app/Contents/Linux/starts");
        mkfifo(name.c_str(), 0600);
        starts.Reset(open(name.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    }
    std::string Path() const { return folder.Join("Due.app"); }
    bool AwaitStart(int timeoutMs) const {
        pollfd readable{starts.Get(), POLLIN, 0};
        return poll(&readable, 1, timeoutMs) == 1;
    }
    void ForgetStarts() const {
        char bytes[64];
        while (read(starts.Get(), bytes, sizeof bytes) > 0) {
        }
    }

private:
    TempFolder folder;
    platform::Descriptor starts;
};

// One life of a failing helper and the begin of a healthy one's, in a home of its own.
class Life {
public:
    Life(const DueApplication& application, const Fault& itsFault) : due(application), fault(itsFault) {
        counts = scratch.Write("counts", std::string(kFailingCalls.size() * sizeof(uint32_t), '\0'));
        due.ForgetStarts();
        const StoredSchedule kept{kMainAppBundleId, kApp, "kept", time(nullptr) + kFarSeconds, false, false, 0};
        const StoredSchedule soon{kMainAppBundleId, due.Path(), "due", time(nullptr) + kDueSeconds, false, false, 0};
        home.WriteStore({kept, soon});
        expected.Begin(kept);
        expected.Begin(soon);
        dueAt = soon.launch;
    }

    // What went wrong; empty when nothing did.
    std::string Live() {
        auto environment = home.Environment();
        environment["FAILING_CALL"] = std::string(kFailingCalls[fault.call].name) + " " + std::to_string(fault.number) +
                                      " " + std::to_string(fault.error) + " " + std::to_string(fault.forGood);
        environment["FAILING_COUNTS"] = counts;
        Program helper({FAILING_HELPER}, environment);
        std::string wrong = Serve(helper);
        if (wrong.empty()) wrong = End(helper);
        if (wrong.empty()) wrong = GoOn();
        return wrong.empty() ? wrong : wrong + "\n" + helper.Output();
    }

    // How often each call was made.
    std::array<uint32_t, kFailingCalls.size()> Counts() const {
        std::array<uint32_t, kFailingCalls.size()> numbers{};
        std::ifstream file(counts, std::ios::binary);
        file.read(reinterpret_cast<char*>(numbers.data()), sizeof numbers);
        return numbers;
    }

private:
    static constexpr const char* kApp = "/";  // some folder that is there

    bool AwaitService(const Program& helper) {
        const auto end = Clock::now() + std::chrono::milliseconds(kPatienceMs);
        while (Clock::now() < end && helper.IsRunning()) {
            if (IsServed()) return true;
            poll(nullptr, 0, 2);
        }
        return false;
    }
    bool IsServed() {
        if (!wire || !wire->IsConnected()) wire.emplace(home.ServiceSocket());
        if (wire->Ask(HelperRequest::Test(), kPatienceMs) == true) return true;
        wire.reset();
        return false;
    }

    // Carries a request out. False: it wasn't answered, also when tried again.
    bool Tell(const std::function<HelperRequest()>& make) {
        for (int tries = 0; tries < 3; tries++) {
            if (!wire || !wire->IsConnected()) wire.emplace(home.ServiceSocket());
            if (wire->Send(make()) && wire->Ask(HelperRequest::Test(), kPatienceMs) == true) return true;
            wire.reset();
        }
        return false;
    }
    bool Look(const std::string& name) {
        const auto stored = tools::ReadStore(home.StorePath());
        if (!stored || !expected.IsWanted(*stored, name)) return false;
        expected.Acknowledged(name);
        return true;
    }
    bool Add(const std::string& name, int seconds) {
        const tools::Application application{kMainAppBundleId, kApp};
        const tools::NewSchedule schedule{name, time(nullptr) + kFarSeconds + seconds, false, false, 0};
        expected.Asked(name, StoredSchedule{application.bundleId, application.path, name,
                                            schedule.start - kLaunchLeadSeconds, false, false, 0});
        return Tell([&] { return HelperRequest::Add(application, schedule); }) && Look(name);
    }
    bool Delete(const std::string& name) {
        const tools::Application application{kMainAppBundleId, kApp};
        expected.Asked(name, std::nullopt);
        return Tell([&] { return HelperRequest::Delete(application, name); }) && Look(name);
    }

    std::string Serve(Program& helper) {
        bool serves = AwaitService(helper);
        if (helper.IsRunning()) {  // as the main application starts it again when it isn't served
            Program second({Home::HelperProgram()}, home.Environment());
            const int status = second.AwaitEnd();
            if (status != 0 && !fault.forGood) return "the second helper ends with " + std::to_string(status);
            serves = AwaitService(helper);
        }
        if (!helper.IsRunning()) return "";           // judged by its status
        const bool isInTime = time(nullptr) < dueAt;  // it has loaded by now
        if (!serves && !fault.forGood) return "it doesn't serve";
        if (serves) {
            Add("A", 1);
            Add("B", 2);
            Add("A", 3);
            Delete("B");
            wire.reset();
            Add("C", 4);
            const bool isStored = Add("D", 5) || Add("E", 6);  // the fault may have met the first of them
            if (!isStored && !fault.forGood) return "the last schedule isn't stored";
            const auto stored = tools::ReadStore(home.StorePath());
            if (isStored && (!stored || !expected.IsAllWanted(*stored))) return "the store isn't what memory holds";
        }
        const long leftMs = std::max((dueAt + kLateSeconds - time(nullptr)) * 1000, 0L);
        const bool isStarted = due.AwaitStart(static_cast<int>(leftMs));
        if (!isStarted && isInTime && helper.IsRunning() && !fault.forGood) return "what was due isn't started";
        return "";
    }

    // It ends when asked to, or has ended by itself and said so.
    std::string End(Program& helper) {
        const bool wasRunning = helper.IsRunning();
        helper.Signal(SIGTERM);
        const int status = helper.AwaitEnd();
        if (status < 0) return "it doesn't end";
        if (wasRunning && status != 0) return "it ends with " + std::to_string(status);
        const bool isRefusal = status == EXIT_FAILURE || status == 1000 + SIGABRT;
        const bool saysWhy = CountOf(helper.Output(), ": ") > 0 && CountOf(helper.Output(), "terminate") == 0;
        if (!wasRunning && !(isRefusal && saysWhy))
            return "it ended by itself, with " + std::to_string(status) + " and \"" + helper.Output() + "\"";
        const auto stored = tools::ReadStore(home.StorePath());
        return stored && expected.IsPossible(*stored) ? "" : "what was answered is not stored";
    }

    // A healthy helper goes on with what is stored.
    std::string GoOn() {
        const auto before = tools::ReadStore(home.StorePath()).value();
        Program helper({Home::HelperProgram()}, home.Environment());
        if (!AwaitService(helper)) return "the next helper doesn't serve: " + helper.Output();
        if (!Add("next", 7)) return "the next helper stores nothing";
        auto after = tools::ReadStore(home.StorePath()).value();
        std::erase_if(after, [](const StoredSchedule& schedule) { return schedule.name == "next"; });
        if (after != before) return "the next helper doesn't go on with what was stored";
        helper.Signal(SIGTERM);
        return helper.AwaitEnd() == 0 ? "" : "the next helper doesn't end well";
    }

    const DueApplication& due;
    const Fault fault;
    TempFolder scratch;
    std::string counts;
    Home home;
    Expectation expected;
    time_t dueAt = 0;
    std::optional<WireClient> wire;
};

class Lives {
public:
    explicit Lives(Stress& reports) : stress(reports), applications(kLivesAtATime) {}

    void Try(uint64_t count, uint64_t seed) {
        // As many healthy lives at a time as will fail: each sees the others' processes, and makes calls for them.
        faults.assign(applications.size(), {0, 0, 0, false});
        Work();
        if (!failures.empty()) return stress.Figure("without a fault: " + failures[0], false);
        const auto never = std::count(calls.begin(), calls.end(), 0u);
        Plan();
        const size_t all = faults.size();
        std::shuffle(faults.begin(), faults.end(), Random(seed));
        if (faults.size() > count) faults.resize(count);
        Work();
        stress.Figure("helper: " + std::to_string(tried) + " of " + std::to_string(all) +
                          " lives with a failing call (" + std::to_string(calls.size() - static_cast<size_t>(never)) +
                          " calls by name), " + std::to_string(met) +
                          " of which it met: " + std::to_string(failures.size()) + " wrong",
                      failures.empty());
        for (const std::string& failure : failures) stress.Fail(failure, count, seed);
    }

private:
    // One more than healthy lives make: another order of events makes another number of calls.
    void Plan() {
        faults.clear();
        for (size_t call = 0; call < calls.size(); call++)
            for (const int error : kFailingCalls[call].errors)
                for (uint32_t number = 1; number <= calls[call] + 1; number++)
                    for (const bool forGood : {false, true})
                        if (!forGood || error != EINTR) faults.push_back({call, number, error, forGood});
    }

    void Work() {
        tried = met = 0;
        std::vector<std::thread> threads;
        for (const DueApplication& application : applications)
            threads.emplace_back([&] {
                while (const std::optional<Fault> fault = Next()) LiveWith(*fault, application);
            });
        for (std::thread& thread : threads) thread.join();
    }
    std::optional<Fault> Next() {
        const std::lock_guard lock(mutex);
        return tried < faults.size() ? std::optional(faults[tried++]) : std::nullopt;
    }
    void LiveWith(const Fault& fault, const DueApplication& application) {
        Life life(application, fault);
        const std::string wrong = life.Live();
        const auto made = life.Counts();
        const std::lock_guard lock(mutex);
        met += made[fault.call] >= fault.number;
        if (!wrong.empty()) failures.push_back(fault.Text() + ": " + wrong);
        if (fault.number > 0) return;
        for (size_t call = 0; call < calls.size(); call++) calls[call] = std::max(calls[call], made[call]);
    }

    Stress& stress;
    const std::vector<DueApplication> applications;
    const Home quilloHome;
    const std::unique_ptr<Program> quillo = quilloHome.StartQuillo();

    std::mutex mutex;
    std::array<uint32_t, kFailingCalls.size()> calls{};  // of a healthy life, at the most
    std::vector<Fault> faults;
    size_t tried = 0;
    size_t met = 0;
    std::vector<std::string> failures;
};

void TryTheStore(Stress& stress) {
    const CrashStates::Requests alphabet{{StoreRequest::Add, "A", CrashStates::kNow + 100},
                                         {StoreRequest::Add, "B", CrashStates::kNow + 200},
                                         {StoreRequest::Delete, "A"},
                                         {StoreRequest::DeleteAll}};
    CrashStates states;
    size_t failures = 0;
    for (const auto begin : CrashStates::kBegins)
        for (const StoreRequest& first : alphabet)
            for (const StoreRequest& second : alphabet)
                for (const int error : {EIO, ENOSPC, EINTR, EMFILE, ENOMEM, 0})
                    for (const bool forGood : {false, true})
                        for (int call = 1; states.TryAfterFailure(begin, {first, second}, {call, error, forGood});
                             call++)
                            failures++;
    stress.Figure("store: " + std::to_string(failures) + " failing file calls, " +
                      std::to_string(states.PowerFailures()) + " power failures behind them, " +
                      std::to_string(states.Violations().size()) + " wrong",
                  states.Violations().empty());
    std::set<std::string> texts;
    for (const auto& violation : states.Violations()) texts.insert(violation.text);
    for (const std::string& text : texts) stress.Fail(text, stress.Count(), stress.Seed());
}

}  // namespace

int main(int argc, char** argv) {
    Stress stress("fail-calls", 100, argc, argv);
    Stress::Hush();
    TryTheStore(stress);
    Lives(stress).Try(stress.Count(), stress.Seed());
    return stress.Status();
}
