// Eight clients change schedules and ask, at one server with its scheduler, while schedules start, are replaced and are
// deleted: four through the library's client, four through plain sockets. All in one process, so that the thread
// sanitizer sees both ends. Afterwards the clock is put forward: what starts then is what memory held, and must be what
// is stored. --count: the requests of each client.
#include "SteeredClock.h"
#include "Stress.h"

#include "MainBundle.h"
#include "UserDefaultsStore.h"
#include "app/LScheduleHelperKeys.h"
#include "app/LScheduleHelperRequest.h"
#include "home/Home.h"
#include "home/WireClient.h"
#include "scheduler/LGCDScheduler.h"
#include "xpc/LXPCClient.h"
#include "xpc/LXPCMachServer.h"

#include <dispatch/exit_gate.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <thread>

namespace {

using tools::HelperRequest;
using tools::StoredSchedule;
using Schedules = std::map<std::string, StoredSchedule>;  // of one application, by name

constexpr size_t kClients = 8;
constexpr int kNames = 12;  // of schedules, for each application
constexpr time_t kDay = 86'400;
constexpr time_t kFarDays = 5;      // the last start of a one-time schedule
constexpr time_t kForwardDays = 8;  // by then everything that repeats has started as well
constexpr int kPatienceMs = 60'000;
constexpr size_t kMostOpen = 16;             // questions of a client that may wait for an answer
constexpr uint64_t kConnectionLength = 100;  // requests
constexpr char kBundleId[] = "com.example.clients";
constexpr char kSoon[] = "/soon";  // an application of this path adds what starts meanwhile

using Key = std::pair<std::string, std::string>;  // path and name

// What the helper is, but for the starts: it only notes them, and deletes every other schedule when it starts, as the
// main application does.
class Helper final : public LXPCServerEventNotify, public LGCDScheduler {
public:
    using LGCDScheduler::EvScheduleStart;

    Helper() {
        for (const LScheduleHelperKey& key : LScheduleHelperKeys()) server->AddKey(key.szName, key.type);
    }
    ~Helper() { Stop(); }
    Helper(const Helper&) = delete;
    Helper& operator=(const Helper&) = delete;

    // The main thread's. Comes back only when the service can't be had.
    void Serve() { server->Start(kHelperServiceName); }
    void Stop() {
        StopCallbacks();
        server.reset();
    }

    void EvConnectionError(long connection, LXPCErrorType) override { server->Disconnect(connection); }
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override {
        const auto request = LScheduleHelperRequest::Read(items);
        const auto answer = [&](const char* key, bool value) {
            LList<LXPCDataListable> reply;
            reply.Add(CreateXPCData({key, xpcDataBool}, value, 0));
            server->SendReply(connection, message, reply);
        };
        if (request.action == request.Test) answer(kReplyTestConnection, true);
        if (request.action == request.MayQuit) answer(kReplyShutdownHelperRequest, !HasTimers());
        if (request.action == request.Delete) Delete(request.bundleId, request.bundlePath, request.skedName);
        if (request.action == request.DeleteAll) DeleteAll(request.bundleId, request.bundlePath);
        if (request.action == request.Add)
            Add(request.bundleId, request.bundlePath, request.skedName, LDateTime(request.LaunchSeconds()),
                request.daily, request.weekly, LWeekDay(request.weekDays));
    }
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override {}
    void EvMessageSent(long) override {}
    void EvInvalidConnectionAttempt() override {}

    void EvScheduleStart(const char* appBundleId, const char* appPath, const char* skedName) override {
        {
            const std::lock_guard lock(mutex);
            started.emplace(appPath, skedName);
            count++;
            changed.notify_all();
        }
        if (std::string_view(appPath).starts_with(kSoon) && (skedName[0] % 2) != 0)
            Delete(appBundleId, appPath, skedName);
    }

    // Each call begins anew.
    std::set<Key> TakeStarted() {
        const std::lock_guard lock(mutex);
        return std::exchange(started, {});
    }
    // Whether so many different ones start within a minute.
    bool AwaitStarted(size_t number) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::milliseconds(kPatienceMs), [&] { return started.size() >= number; });
    }
    size_t Starts() {
        const std::lock_guard lock(mutex);
        return count;
    }

private:
    std::unique_ptr<LXPCMachServer> server = std::make_unique<LXPCMachServer>(this);

    std::mutex mutex;
    std::condition_variable changed;
    std::set<Key> started;
    size_t count = 0;
};

// How a client speaks to the server. Each gives false when an answer is missing.
class Speaker {
public:
    virtual ~Speaker() = default;
    virtual bool Tell(const HelperRequest& request) = 0;
    virtual bool Ask(const HelperRequest& request) = 0;
    // Waits for all answers, which come behind whatever was told before.
    virtual bool Await() { return true; }
};

class PlainSpeaker final : public Speaker {
public:
    explicit PlainSpeaker(const std::string& socket) : client(socket) {}
    bool Tell(const HelperRequest& request) override { return client.Send(request); }
    bool Ask(const HelperRequest& request) override { return client.Ask(request, kPatienceMs).has_value(); }

private:
    WireClient client;
};

// Asks without waiting for each answer.
class LibrarySpeaker final : public Speaker, private LXPCEventNotify {
public:
    LibrarySpeaker() {
        client.AddKey(kReplyTestConnection, xpcDataBool);
        client.AddKey(kReplyShutdownHelperRequest, xpcDataBool);
        isConnected = client.Connect(kHelperServiceName, 1, true);
    }
    bool Tell(const HelperRequest& request) override { return Send(request, false); }
    bool Ask(const HelperRequest& request) override {
        if (!AwaitAllBut(kMostOpen - 1)) return false;
        {
            const std::lock_guard lock(mutex);
            open++;
        }
        return Send(request, true);
    }
    bool Await() override { return AwaitAllBut(0); }

private:
    bool Send(const HelperRequest& request, bool withReply) {
        client.SendMessage(kHelperServiceName, 1, request.Items().data(), request.Items().size(), withReply);
        return isConnected;
    }
    bool AwaitAllBut(size_t left) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::milliseconds(kPatienceMs), [&] { return open <= left; });
    }

    void EvConnectionError(long, LXPCErrorType) override {}
    void EvMessageReceived(long, long, const LList<LXPCDataListable>&) override {}
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override {
        const std::lock_guard lock(mutex);
        open--;
        changed.notify_all();
    }
    void EvMessageSent(long) override {}

    std::mutex mutex;
    std::condition_variable changed;
    size_t open = 0;
    bool isConnected = false;
    LXPCClient client{this};
};

// One client. Of its own application it knows what must be stored; a second one is everybody's, a third one's schedules
// start meanwhile.
class Client {
public:
    Client(size_t clientNumber, std::string socketPath, uint64_t seed)
        : number(clientNumber), socket(std::move(socketPath)), random(seed) {}

    void Work(uint64_t requests) {
        for (uint64_t i = 0; i < requests && fault.empty(); i++) {
            if (i % kConnectionLength == 0) Connect();
            const bool isAnswered = Below(3) == 0 ? Ask() : speaker->Tell(Next());
            if (!isAnswered) Miss("request " + std::to_string(i));
        }
        const bool isLast = speaker->Tell(HelperRequest::DeleteAll(Soon())) && Ask() && speaker->Await();
        if (!isLast && fault.empty()) Miss("the last request");
        speaker.reset();
    }

    size_t Questions() const { return questions; }
    // What is wrong with what is stored, or "".
    std::string FaultIn(const std::vector<StoredSchedule>& stored) const {
        Schedules found;
        for (const StoredSchedule& schedule : stored)
            if (schedule.appPath == Own().path) found[schedule.name] = schedule;
        if (!fault.empty() || found == own) return fault;
        return "client " + std::to_string(number) + " has asked for " + std::to_string(own.size()) + " schedules, " +
               std::to_string(found.size()) + " are stored, or others";
    }

private:
    static tools::Application At(const std::string& path) { return {kBundleId, path}; }
    tools::Application Own() const { return At("/own" + std::to_string(number) + ".app"); }
    tools::Application Soon() const { return At(kSoon + std::to_string(number) + ".app"); }

    int Below(int end) { return ::Below(random, end); }

    void Miss(const std::string& what) {
        fault = "client " + std::to_string(number) + ": " + what + " is not answered";
    }

    void Connect() {
        // Connections run side by side: without an answer behind the last request of the old one, what is told on the
        // new one could overtake it.
        if (speaker && !(Ask() && speaker->Await())) Miss("an earlier request");
        if (number % 2 == 0)
            speaker = std::make_unique<PlainSpeaker>(socket);
        else
            speaker = std::make_unique<LibrarySpeaker>();
        if (!Ask() || !speaker->Await()) Miss("a new connection");
    }
    bool Ask() {
        questions++;
        return speaker->Ask(Below(2) ? HelperRequest::Test() : HelperRequest::MayQuit());
    }

    HelperRequest Next() {
        const int kind = Below(100);
        if (kind == 0) own.clear();
        if (kind < 2) return HelperRequest::DeleteAll(kind == 0 ? Own() : At("/shared.app"));
        const std::string name = std::to_string(Below(kNames));
        const time_t now = platform::CurrentClock().WallSeconds();
        if (kind < 20) return HelperRequest::Add(Soon(), {name, now + kLaunchLeadSeconds + 1, false, false, 0});
        const bool isOwn = kind % 2 == 0, isAdded = kind < 80;
        const tools::Application application = isOwn ? Own() : At("/shared.app");
        if (!isAdded) {
            if (isOwn) own.erase(name);
            return HelperRequest::Delete(application, name);
        }
        tools::NewSchedule schedule{name, now + kDay + Below((kFarDays - 1) * kDay), Below(4) == 0, Below(4) == 0, 0};
        if (schedule.weekly) schedule.weekdays = static_cast<uint8_t>(1 + Below(0x7F));
        if (isOwn)
            own[name] = {kBundleId,       application.path, name, schedule.start - kLaunchLeadSeconds, schedule.daily,
                         schedule.weekly, schedule.weekdays};
        return HelperRequest::Add(application, schedule);
    }

    const size_t number;
    const std::string socket;
    Random random;
    std::unique_ptr<Speaker> speaker;
    Schedules own;
    size_t questions = 0;
    std::string fault;
};

// What starts within the days put forward must be what is stored, and nothing else.
void CompareMemory(Stress& stress, Helper& helper, SteeredClock& clock, const std::vector<StoredSchedule>& stored) {
    std::set<Key> expected;
    for (const StoredSchedule& schedule : stored) expected.emplace(schedule.appPath, schedule.name);
    helper.TakeStarted();
    const Key last{"/last.app", "last"};
    expected.insert(last);
    helper.Add(kBundleId, last.first.c_str(), last.second.c_str(), LDateTime(clock.WallSeconds() + 2), false, false,
               LWeekDay());
    clock.PutForward(kForwardDays * kDay);
    const bool haveAll = helper.AwaitStarted(expected.size());
    const std::set<Key> started = helper.TakeStarted();
    stress.Figure(std::to_string(stored.size()) + " schedules stored, " + std::to_string(started.size() - 1) +
                      " in memory" + (started == expected ? ", the same" : ", NOT the same"),
                  haveAll && started == expected && !stored.empty());
}

void Try(Stress& stress, Helper& helper, SteeredClock& clock, const Home& home) {
    if (!home.AwaitService()) return stress.Figure("nobody serves", false);
    std::vector<std::unique_ptr<Client>> clients;
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kClients; i++)
        clients.push_back(std::make_unique<Client>(i, home.ServiceSocket(), stress.Seed() + i));
    for (const auto& client : clients) threads.emplace_back([&] { client->Work(stress.Count()); });
    for (std::thread& thread : threads) thread.join();

    const auto stored = home.Stored();
    size_t questions = 0;
    std::string fault;
    for (const auto& client : clients) {
        questions += client->Questions();
        if (fault.empty()) fault = client->FaultIn(stored);
    }
    const size_t starts = helper.Starts();
    stress.Figure(std::to_string(kClients) + " clients with " + std::to_string(stress.Count()) + " requests each, " +
                      std::to_string(questions) + " of them questions, all answered; " + std::to_string(starts) +
                      " starts meanwhile",
                  fault.empty() && starts > 0);
    if (!fault.empty()) stress.Fail(fault, stress.Count(), stress.Seed());
    CompareMemory(stress, helper, clock, stored);
}

}  // namespace

int main(int argc, char** argv) {
    Stress stress("clients", 2'000, argc, argv);
    setenv("TZ", "UTC0", 1);
    if (std::filesystem::is_directory("/dev/shm")) setenv("TMPDIR", "/dev/shm", 1);  // what is tried is no disk
    auto home = std::make_unique<Home>();
    setenv("XDG_RUNTIME_DIR", home->Environment().at("XDG_RUNTIME_DIR").c_str(), 1);
    platform::SetMainBundleRoot(BUILD_FOLDER "/schedulehelper.app");
    platform::SetStandardUserDefaults(home->StorePath());
    SteeredClock clock(false);
    Helper helper;
    std::thread([&] {
        Try(stress, helper, clock, *home);
        dispatch_gate_close(stress.Status());
        helper.Stop();
        home.reset();
        exit(stress.Status());
    }).detach();
    helper.Serve();
    stress.Figure("the service can't be had", false);
    return stress.Status();
}
