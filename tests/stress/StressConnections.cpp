// Connections to the helper of every kind that a program in any language may make: plain ones, and such that end half
// way, say nothing, send garbage, flood, or don't read. Then 500 silent ones at once; a helper with few descriptors;
// another user's process; and things that stand where the service's folder or socket should. Every honest request must
// be answered, and nothing be kept of the others. --count: the connections.
#include "Stress.h"

#include "Descriptor.h"
#include "ServiceFolder.h"
#include "app/LScheduleHelperKeys.h"
#include "home/Home.h"
#include "home/WireClient.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using tools::HelperRequest;
using Clock = std::chrono::steady_clock;

constexpr size_t kThreads = 4;
constexpr size_t kSilentEach = 16;  // of a thread, at any time
constexpr int kFlood = 300;         // requests in one piece
constexpr size_t kSilentAtOnce = 500;
constexpr time_t kFarAway = 4'102'444'800;  // 2100
constexpr uid_t kStranger = 65'534;
constexpr long kMostKeptKb = 1'024;

const tools::Application kApplication{kMainAppBundleId, "/"};

bool AsksWell(const std::string& socket) {
    return WireClient(socket).Ask(HelperRequest::Test()) == true;
}

bool Adds(WireClient& client, const std::string& name) {
    return client.Send(HelperRequest::Add(kApplication, {name, kFarAway, false, false, 0})) &&
           client.Ask(HelperRequest::Test()) == true;
}

// One thread's peers, one after the other but for the silent ones. Each function tells whether all was as it must be.
class Peers {
public:
    Peers(std::string socketPath, size_t thread, uint64_t seed)
        : socket(std::move(socketPath)), name(std::to_string(thread)), random(seed) {}

    bool BePlain() { return AsksWell(socket); }
    bool Add() {
        WireClient client(socket);
        return Adds(client, name);
    }
    bool EndHalfWay() {
        WireClient client(socket);
        const std::string frame = client.FrameOf(HelperRequest::DeleteAll(kApplication));
        if (!client.SendBytes(frame.substr(0, static_cast<size_t>(Below(random, static_cast<int>(frame.size()))))))
            return false;
        if (Below(random, 2)) return true;
        client.EndStream();
        return client.AwaitEnd();
    }
    bool BeSilent() {
        if (silent.size() == kSilentEach) silent.pop_front();
        return silent.emplace_back(socket).IsConnected();
    }
    // Nothing that begins with noise is a frame. The helper may hang up before all of it is sent.
    bool SendGarbage() {
        WireClient client(socket);
        std::string bytes(static_cast<size_t>(24 + Below(random, 5'000)), '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        client.SendBytes(bytes);
        return client.AwaitEnd();
    }
    bool Flood() {
        WireClient client(socket);
        int answers = 0;
        if (client.SendBytes(Requests(client, kFlood)))
            while (answers < kFlood && client.Answer(HelperRequest::Test())) answers++;
        return answers == kFlood;
    }
    // Until the helper hangs up.
    bool NeverRead() {
        WireClient client(socket);
        const auto deadline = Clock::now() + std::chrono::seconds(15);
        while (client.SendBytes(Requests(client, kFlood)))
            if (Clock::now() > deadline) return false;
        return client.IsConnected();
    }

private:
    static std::string Requests(WireClient& client, int count) {
        std::string bytes;
        while (count-- > 0) bytes += client.FrameOf(HelperRequest::Test());
        return bytes;
    }

    const std::string socket, name;
    Random random;
    std::deque<WireClient> silent;
};

struct Kind {
    const char* text;
    const char* otherwise;
    int share;  // of 1,000 connections
    bool (Peers::*connect)();
};

constexpr std::array kKinds{
    Kind{"plain requests", "unanswered", 600, &Peers::BePlain},
    Kind{"requests that add", "unanswered", 10, &Peers::Add},
    Kind{"peers that end half way", "not hung up on", 124, &Peers::EndHalfWay},
    Kind{"silent peers", "not accepted", 120, &Peers::BeSilent},
    Kind{"peers that send garbage", "not hung up on", 140, &Peers::SendGarbage},
    Kind{"peers with 300 requests in one piece", "not wholly answered", 5, &Peers::Flood},
    Kind{"peers that never read", "not hung up on", 1, &Peers::NeverRead},
};

// What a helper holds.
struct Held {
    size_t descriptors;
    long anonymousKb = 0;

    explicit Held(pid_t pid) {
        const fs::path folder = "/proc/" + std::to_string(pid);
        descriptors = static_cast<size_t>(std::distance(fs::directory_iterator(folder / "fd"), {}));
        std::ifstream file(folder / "smaps_rollup");
        for (std::string word; file >> word;)
            if (word == "Anonymous:") file >> anonymousKb;
    }
};

void TryAllKinds(Stress& stress, const std::string& socket) {
    struct Tally {
        std::atomic<size_t> tried{0}, lost{0};
    };
    std::array<Tally, kKinds.size()> tallies;
    std::atomic<uint64_t> left{stress.Count()};
    const auto work = [&](size_t thread) {
        Peers peers(socket, thread, stress.Seed() + thread);
        Random random(stress.Seed() - thread);
        for (uint64_t now = left; now > 0; now = left) {
            if (!left.compare_exchange_weak(now, now - 1)) continue;
            size_t kind = 0;
            for (int at = Below(random, 1'000); at >= kKinds[kind].share; kind++) at -= kKinds[kind].share;
            tallies[kind].tried++;
            tallies[kind].lost += !(peers.*kKinds[kind].connect)();
        }
    };
    const auto begin = Clock::now();
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kThreads; i++) threads.emplace_back(work, i);
    for (std::thread& thread : threads) thread.join();
    const std::chrono::duration<double> seconds = Clock::now() - begin;
    for (size_t i = 0; i < kKinds.size(); i++) {
        const size_t tried = tallies[i].tried, lost = tallies[i].lost;
        stress.Figure(Text("%zu %s, %zu %s", tried, kKinds[i].text, lost, kKinds[i].otherwise), lost == 0);
    }
    stress.Figure(Text("%.0f connections a second", static_cast<double>(stress.Count()) / seconds.count()), true);
}

// While they stay, a schedule is added.
void TrySilentAtOnce(Stress& stress, const std::string& socket) {
    std::vector<WireClient> silent;
    for (size_t i = 0; i < kSilentAtOnce; i++) silent.emplace_back(socket);
    const auto begin = Clock::now();
    WireClient client(socket);
    const bool isAdded = Adds(client, "beside the silent ones");
    const std::chrono::duration<double, std::milli> ms = Clock::now() - begin;
    const auto connected = std::count_if(silent.begin(), silent.end(), [](const auto& c) { return c.IsConnected(); });
    stress.Figure(Text("%td silent peers at once: an add beside them is %s after %.1f ms", connected,
                       isAdded ? "answered" : "NOT answered", ms.count()),
                  isAdded && connected == kSilentAtOnce);
}

void TryMany(Stress& stress, const Home& home) {
    const auto helper = home.StartHelper();
    const std::string socket = home.ServiceSocket();
    const Held before(helper->Pid());
    TryAllKinds(stress, socket);
    TrySilentAtOnce(stress, socket);
    const bool isClosed = Await([&] { return Held(helper->Pid()).descriptors <= before.descriptors; });
    const long most = before.anonymousKb + kMostKeptKb;
    const bool isGivenBack = Await([&] { return Held(helper->Pid()).anonymousKb <= most; });
    const Held after(helper->Pid());
    stress.Figure(Text("%zu descriptors before, %zu afterwards", before.descriptors, after.descriptors), isClosed);
    stress.Figure(Text("%ld KB of memory before, %ld afterwards", before.anonymousKb, after.anonymousKb), isGivenBack);
    const size_t added = home.Stored().size(), expected = 1 + kThreads;
    stress.Figure(Text("%zu schedules stored of %zu added", added, expected), added == expected);
    helper->Signal(SIGTERM);
    const int status = helper->AwaitEnd();
    stress.Figure(Text("the helper ends with %d", status), status == 0);
}

// Peers hold every descriptor that the helper may have. A start needs some of its own, and so does an add.
void TryFewDescriptors(Stress& stress, int limit) {
    const Home home;
    const auto quillo = home.StartQuillo();
    const std::string other = home.CopyQuillo("other", "2.14");
    home.WriteStore({{kMainAppBundleId, other, "due", time(nullptr) + 3, false, false, 0}});
    const std::string line = "ulimit -n " + std::to_string(limit) + "; exec '" + Home::HelperProgram() + "'";
    const auto helper = home.StartHelper({"/bin/sh", "-c", line});
    WireClient first(home.ServiceSocket());
    std::vector<WireClient> others;
    for (int i = 0; i < 200; i++) others.emplace_back(home.ServiceSocket());
    const bool isAdded = Adds(first, "added") && home.Stored().size() == 2;
    const bool isStarted = helper->AwaitOutput("(the helper)");
    others.clear();
    const bool isFree = AsksWell(home.ServiceSocket());
    stress.Figure(Text("200 peers that stay with a helper that may have %d descriptors: %s, %s, %s", limit,
                       isAdded ? "it adds" : "it does NOT add", isStarted ? "starts Quillo" : "does NOT start Quillo",
                       isFree ? "and serves when they have gone" : "does NOT serve when they have gone"),
                  isAdded && isStarted && isFree);
}

// --- whom it must not serve ------------------------------------------------------------------------------------------

// What a process of another user meets that may enter the folders: 0 when it is hung up on without a word.
int StatusOfStranger(const std::string& socket) {
    const pid_t pid = fork();
    if (pid == 0) {
        if (setgroups(0, nullptr) != 0 || setresgid(kStranger, kStranger, kStranger) != 0 ||
            setresuid(kStranger, kStranger, kStranger) != 0)
            _exit(2);
        WireClient client(socket);
        if (!client.IsConnected()) _exit(3);
        client.Send(HelperRequest::Quit());
        _exit(client.Answer(HelperRequest::Test()) || !client.AwaitEnd() ? 4 : 0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WEXITSTATUS(status);
}

void TryStranger(Stress& stress, const Home& home) {
    const auto helper = home.StartHelper();
    const fs::path runtime = fs::path(home.ServiceSocket()).parent_path();
    const int outside = StatusOfStranger(home.ServiceSocket());
    for (const fs::path& path : {runtime.parent_path(), runtime, fs::path(home.ServiceSocket())})
        chmod(path.c_str(), 0777);
    const int inside = StatusOfStranger(home.ServiceSocket());
    const bool isServing = AsksWell(home.ServiceSocket()) && helper->IsRunning();
    const int own = home.Control({"test"});
    stress.Figure(
        Text("another user: %s; with all doors open %s; the helper %s; its own user's client, which trusts no "
             "open folder, ends with %d",
             outside == 3 ? "can't connect" : "CAN connect",
             inside == 0 ? "hung up on without a word" : "NOT hung up on",
             isServing ? "serves on" : "does NOT serve on", own),
        outside == 3 && inside == 0 && isServing && own == 4);
    for (const fs::path& path : {runtime.parent_path(), runtime}) chmod(path.c_str(), 0700);
}

// What an intruder may have put in the service's place before the helper starts: around a socket of his that listens.
struct Trap {
    const char* text;
    bool takesRoot;
    bool isReplaced;  // by the helper's socket; else the helper serves in another folder
    void (*set)(const fs::path& folder, const fs::path& socket);
};

void PutLink(const fs::path& path) {
    const std::string moved = path.string() + ".moved";
    fs::rename(path, moved);
    fs::create_symlink(moved, path);
}

void GiveAway(const fs::path& path) {
    if (chown(path.c_str(), kStranger, kStranger) != 0)
        throw std::system_error(errno, std::generic_category(), "chown");
}

constexpr std::array kTraps{
    Trap{"a folder that others may enter", false, false,
         [](const fs::path& folder, const fs::path&) { chmod(folder.c_str(), 0755); }},
    Trap{"a link to a folder", false, false, [](const fs::path& folder, const fs::path&) { PutLink(folder); }},
    Trap{"another user's folder", true, false, [](const fs::path& folder, const fs::path&) { GiveAway(folder); }},
    Trap{"another user's socket", true, true, [](const fs::path&, const fs::path& socket) { GiveAway(socket); }},
    Trap{"a link to a socket", false, true, [](const fs::path&, const fs::path& socket) { PutLink(socket); }},
};

bool HasVisitor(const platform::Descriptor& listener) {
    return static_cast<bool>(platform::Descriptor(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
}

void TryTrap(Stress& stress, const Trap& trap) {
    const Home home;
    const fs::path socket = home.ServiceSocket(), folder = socket.parent_path();
    const platform::Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const platform::Descriptor squatter = platform::BindIn(opened.Get(), kHelperServiceName);
    trap.set(folder, socket);
    bool isAvoided = home.Control({"test"}) == 4;
    const Program helper({Home::HelperProgram()}, home.Environment());
    const bool isServed = Await([&] { return home.Control({"test"}) == 0; });
    isAvoided = isAvoided && !HasVisitor(squatter);
    const bool isReplaced = WireClient(socket).IsConnected() && !HasVisitor(squatter);
    stress.Figure(Text("%s in the place of the service's: clients %s it, the helper %s", trap.text,
                       isAvoided ? "avoid" : "FALL for",
                       !isServed    ? "does NOT serve"
                       : isReplaced ? "takes its place"
                                    : "serves elsewhere"),
                  isAvoided && isServed && isReplaced == trap.isReplaced);
}

// The last folder that helpers and clients try lies outside of any home: it is put away if it is this program's work.
void TryTraps(Stress& stress) {
    const Home home;
    const fs::path elsewhere = "/tmp/schedulehelper-" + std::to_string(geteuid());
    const bool wasThere = fs::exists(elsewhere);
    if (home.Control({"test"}) != 4) return stress.Skip("traps: a helper serves this user elsewhere");
    for (const Trap& trap : kTraps) {
        if (trap.takesRoot && geteuid() != 0)
            stress.Skip(std::string(trap.text) + ": it takes root");
        else
            TryTrap(stress, trap);
    }
    if (!wasThere) fs::remove_all(elsewhere);
}

}  // namespace

int main(int argc, char** argv) {
    Stress stress("connections", 100'000, argc, argv);
    {
        const Home home;
        const auto quillo = home.StartQuillo();
        TryMany(stress, home);
        if (geteuid() == 0)
            TryStranger(stress, home);
        else
            stress.Skip("another user: it takes root");
        TryTraps(stress);
    }
    for (const int limit : {32, 100}) TryFewDescriptors(stress, limit);
    return stress.Status();
}
