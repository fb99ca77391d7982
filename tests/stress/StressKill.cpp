// The helper is killed again and again while two clients add and delete schedules. Whatever moment it was: the store
// parses, holds all that was answered and nothing that was not asked for, and the next helper goes on with it. --count:
// the kills.
#include "Stress.h"
#include "app/LScheduleHelperKeys.h"
#include "home/Home.h"
#include "home/WireClient.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <map>
#include <optional>
#include <plist/plist.h>
#include <poll.h>
#include <random>
#include <semaphore>
#include <thread>

namespace {

using Schedules = std::map<std::string, tools::StoredSchedule>;  // of one application, by name

constexpr int kClients = 2;
constexpr int kNames = 8;                                // of schedules, for each client
constexpr int kMostAtOnce = 3;                           // requests before an answer is waited for
constexpr int kMostAnswered = 4;                         // before a kill
constexpr std::chrono::microseconds kLongestWait{3000};  // from then to the kill: longer than a write takes
constexpr std::chrono::microseconds kLongestStart{15'000};
constexpr std::chrono::seconds kPatience{15};

std::chrono::microseconds TimeBelow(Random& random, std::chrono::microseconds end) {
    return std::chrono::microseconds(std::uniform_int_distribution<long>(0, end.count())(random));
}

// How many schedules libplist, which the helper's writer does not use, finds listed; nothing where it takes the file
// for damaged.
std::optional<size_t> KeysByLibplist(const std::string& path) {
    const std::string bytes = BytesOf(path);
    plist_t root = nullptr;
    plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
    const plist_t list = root ? plist_dict_get_item(root, "LGCDSCHEDULER_SKED_ALL") : nullptr;
    std::optional<size_t> count;
    if (list && plist_get_node_type(list) == PLIST_ARRAY) count = plist_array_get_size(list);
    plist_free(root);
    return count;
}

// One for each request answered since the helper's start, for the thread that kills it.
using Answers = std::counting_semaphore<>;

// One application that schedules work, in a thread of its own while the helper lives. It is the only one that changes
// the schedules of its path, so it knows what must be stored.
class Client {
public:
    Client(const Home& ofHome, std::string path, uint64_t seed) : home(ofHome), appPath(std::move(path)), random(seed) {
        std::filesystem::create_directories(appPath);
    }

    // Until the helper is gone.
    void Work(Answers& answers, const std::atomic<bool>& isKilled) {
        std::optional<WireClient> wire;
        while (!wire || !wire->IsConnected()) {
            if (isKilled) return;
            wire.emplace(home.ServiceSocket());
            if (!wire->IsConnected()) poll(nullptr, 0, 1);  // it serves any moment now
        }
        while (AskForSomething(*wire)) {
            answered += states.size() - 1;
            states = {states.back()};
            const auto stored = tools::ReadStore(home.StorePath());  // as schedulectl looks
            if (!stored || OwnOf(*stored) != states[0]) {
                fault = "answered, but not in the store";
                return answers.release(kMostAnswered);  // nobody needs to wait any more
            }
            answers.release();
        }
    }

    // What the store holds of this one's must be as after the last request answered, or after one of those behind it.
    bool Check(const Schedules& stored) {
        const bool isOne = std::find(states.begin(), states.end(), stored) != states.end();
        if (!isOne && fault.empty()) fault = "what was answered is not stored";
        states = {stored};
        return fault.empty();
    }

    Schedules OwnOf(const std::vector<tools::StoredSchedule>& all) const {
        Schedules own;
        for (const tools::StoredSchedule& schedule : all)
            if (schedule.appPath == appPath) own[schedule.name] = schedule;
        return own;
    }
    size_t Answered() const { return answered; }
    const std::string& Fault() const { return fault; }

private:
    // Some requests and a test behind them. False: no answer.
    bool AskForSomething(WireClient& wire) {
        for (int left = 1 + Below(random, kMostAtOnce); left > 0; left--)
            if (!wire.Send(Next())) return false;
        return wire.Ask(tools::HelperRequest::Test()) == true;
    }

    tools::HelperRequest Next() {
        const tools::Application application{kMainAppBundleId, appPath};
        Schedules after = states.back();
        const std::string name = "schedule " + std::to_string(Below(random, kNames));
        const int kind = Below(random, 10);
        if (kind == 0) {
            states.emplace_back();
            return tools::HelperRequest::DeleteAll(application);
        }
        if (kind < 4) {
            after.erase(name);
            states.push_back(after);
            return tools::HelperRequest::Delete(application, name);
        }
        tools::NewSchedule schedule{name, time(nullptr) + 1'000'000 + Below(random, 1'000'000), kind == 4, kind == 5,
                                    0};
        if (schedule.weekly) schedule.weekdays = static_cast<uint8_t>(1 + Below(random, 0x7F));
        after[name] = {
            application.bundleId, application.path, name, schedule.start - kLaunchLeadSeconds, schedule.daily,
            schedule.weekly,      schedule.weekdays};
        states.push_back(after);
        return tools::HelperRequest::Add(application, schedule);
    }

    const Home& home;
    const std::string appPath;
    Random random;
    std::vector<Schedules> states{{}};  // as answered, then after each request on its way
    size_t answered = 0;
    std::string fault;
};

struct Figures {
    size_t kills = 0, amidStart = 0, amidWrite = 0;
};

class Kills {
public:
    explicit Kills(uint64_t seed) : random(seed) {
        for (int i = 0; i < kClients; i++)
            clients.push_back(std::make_unique<Client>(home, applications.Join("Quillo" + std::to_string(i) + ".app"),
                                                       seed + 1 + static_cast<uint64_t>(i)));
    }

    // One life of a helper. False: something is wrong.
    bool Kill() {
        const auto left = LeftOver();
        const int number = Below(random, kMostAnswered + 1);
        const auto wait = TimeBelow(random, number == 0 ? kLongestStart : kLongestWait);
        Program helper({Home::HelperProgram()}, home.Environment());
        const auto started = std::chrono::steady_clock::now();
        Answers answers{0};
        std::atomic<bool> isKilled{false};
        std::vector<std::thread> threads;
        for (const auto& client : clients) threads.emplace_back([&] { client->Work(answers, isKilled); });
        for (int i = 0; i < number && fault.empty(); i++)
            if (!answers.try_acquire_for(kPatience)) fault = "the helper doesn't answer: " + helper.Output();
        const auto until = (number == 0 ? started : std::chrono::steady_clock::now()) + wait;
        while (std::chrono::steady_clock::now() < until) std::this_thread::yield();
        helper.Signal(SIGKILL);
        helper.AwaitEnd();
        isKilled = true;
        for (std::thread& thread : threads) thread.join();
        figures.kills++;
        figures.amidStart += number == 0;
        figures.amidWrite += LeftOver() && LeftOver() != left;
        return fault.empty() && Check();
    }

    // A helper that nobody kills takes over, and ends when asked to.
    bool End() {
        const auto helper = home.StartHelper();
        helper->Signal(SIGTERM);
        if (const int status = helper->AwaitEnd()) fault = "the last helper ends with " + std::to_string(status);
        return fault.empty() && Check();
    }

    size_t Answered() const {
        size_t answered = 0;
        for (const auto& client : clients) answered += client->Answered();
        return answered;
    }
    const Figures& Counts() const { return figures; }
    const std::string& Fault() const { return fault; }

private:
    // When the file that is to become the store was last written to, where a kill left one.
    std::optional<std::filesystem::file_time_type> LeftOver() const {
        std::error_code error;
        const auto time = std::filesystem::last_write_time(home.StorePath() + ".new", error);
        return error ? std::nullopt : std::optional(time);
    }

    bool Check() {
        const auto stored = tools::ReadStore(home.StorePath());
        const std::string folder = std::filesystem::path(home.StorePath()).parent_path();
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            if (entry.path().string().find(".damaged") != std::string::npos) fault = "the store was set aside";
        if (!stored) fault = "the store doesn't parse";
        if (!fault.empty()) return false;
        if (std::filesystem::exists(home.StorePath()) && KeysByLibplist(home.StorePath()) != stored->size())
            fault = "libplist reads another store";
        for (const auto& client : clients)
            if (!client->Check(client->OwnOf(*stored))) fault = client->Fault();
        return fault.empty();
    }

    Random random;
    const Home home;
    const TempFolder applications;
    std::vector<std::unique_ptr<Client>> clients;
    const std::unique_ptr<Program> quillo = home.StartQuillo();
    Figures figures;
    std::string fault;
};

}  // namespace

int main(int argc, char** argv) {
    Stress stress("kill", 1000, argc, argv);
    Kills kills(stress.Seed());
    bool holds = kills.Fault().empty();
    while (holds && kills.Counts().kills < stress.Count()) holds = kills.Kill();
    holds = holds && kills.End();
    const Figures& counts = kills.Counts();
    const std::string tried = std::to_string(counts.kills) + " kills (" + std::to_string(counts.amidStart) +
                              " at the start, " + std::to_string(counts.amidWrite) + " amid a write), " +
                              std::to_string(kills.Answered()) + " requests answered";
    stress.Figure(holds ? tried + ": none lost, the store always whole" : tried, holds);
    if (!holds) stress.Fail(kills.Fault(), counts.kills, stress.Seed());
    return stress.Status();
}
