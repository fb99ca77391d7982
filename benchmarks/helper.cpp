// The helper as a process: from its start to its first answer with 100 schedules stored, beside a bare spawn of a small
// program; and what it costs while nothing is due.
//
// The helper serves only while the main application runs: this program plays it, from a bundle of its own.
#include "Bench.h"

#include "app/LScheduleHelperKeys.h"
#include "xpc/LXPCClient.h"

#include <dispatch/pump.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int kSchedules = 100;
const int kStarts = bench::IsQuick() ? 5 : 30;
const unsigned kIdleSeconds = bench::IsQuick() ? 3 : 30;

[[noreturn]] void Die(const char* what) {
    perror(what);
    exit(1);
}

pid_t Spawn(const std::string& program, const char* argument = nullptr) {
    char* argv[] = {const_cast<char*>(program.c_str()), const_cast<char*>(argument), nullptr};
    pid_t pid = 0;
    errno = posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv, environ);
    if (errno) Die(program.c_str());
    return pid;
}

class Sink final : public LXPCEventNotify {
public:
    void EvConnectionError(long, LXPCErrorType) override { failed = true; }
    void EvMessageReceived(long, long, const LList<LXPCDataListable>&) override {}
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override { answered = true; }
    void EvMessageSent(long) override {}

    bool answered = false;
    std::atomic<bool> failed{false};
};

class Client {
public:
    Client() { client.AddKey(kReplyTestConnection, xpcDataBool); }

    bool TryConnect() { return client.Connect(kHelperServiceName, 0, true); }

    bool Test() {
        sink.answered = false;
        Send({Item(kKeyTestConnection, xpcDataBool, 1)}, true);
        return dispatch_pump_main([this] { return sink.answered; }, 10'000);
    }

    void Add(const std::string& name, const std::string& application) {
        const auto text = [](const std::string& t) { return reinterpret_cast<long>(t.c_str()); };
        const std::string id = kMainAppBundleId;
        Send({Item(kKeyMainAppBundleId, xpcDataString, text(id)),
              Item(kKeyMainAppBundlePath, xpcDataString, text(application)),
              Item(kKeyNewSkedName, xpcDataString, text(name)), Item(kKeyNewSkedTime, xpcDataDate, 4102444800),
              Item(kKeyNewSkedDaily, xpcDataBool, 1)},
             false);
    }

private:
    static LXPCData Item(const char* name, LXPCDataType type, long value) {
        LXPCData item;
        LCopyBounded(item.szName, name, sizeof item.szName);
        item.type = type;
        item.nValue = value;
        return item;
    }
    void Send(const std::vector<LXPCData>& items, bool withReply) {
        client.SendMessage(kHelperServiceName, 0, items.data(), items.size(), withReply);
    }

    Sink sink;
    LXPCClient client{&sink};
};

// A home of its own with a main application that runs in it.
class Home {
public:
    explicit Home(const std::string& self) {
        if (!mkdtemp(folder.data())) Die("mkdtemp");
        for (const char* name : {"/config", "/run"}) {
            mkdir((folder + name).c_str(), 0700);
        }
        setenv("HOME", folder.c_str(), 1);
        setenv("XDG_CONFIG_HOME", (folder + "/config").c_str(), 1);
        setenv("XDG_RUNTIME_DIR", (folder + "/run").c_str(), 1);
        application = folder + "/Quillo.app";
        fs::create_directories(application + "/Contents/Linux");
        fs::copy_file(self, application + "/Contents/Linux/Quillo");
        std::ofstream(application + "/Contents/Info.plist")
            << "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" << kMainAppBundleId
            << "</string><key>CFBundleExecutable</key><string>Quillo</string><key>CFBundleDisplayName</key><string>"
            << kMainAppName << "</string></dict></plist>";
        running = Spawn(application + "/Contents/Linux/Quillo", "wait");
    }
    ~Home() {
        kill(running, SIGKILL);
        waitpid(running, nullptr, 0);
        fs::remove_all(folder);
    }
    Home(const Home&) = delete;
    Home& operator=(const Home&) = delete;

    std::string application;

private:
    std::string folder = fs::temp_directory_path() / "bench.XXXXXX";
    pid_t running = 0;
};

void End(pid_t pid) {
    kill(pid, SIGTERM);
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || status != 0) Die("the helper's end");
}

uint64_t SpawnedSmallProgramNs(const std::string& self) {
    int ends[2];
    if (pipe(ends) != 0) Die("pipe");
    setenv("BENCH_PIPE", std::to_string(ends[1]).c_str(), 1);
    const uint64_t start = bench::NowNs();
    const pid_t pid = Spawn(self, "tell");
    uint64_t reached = 0;
    if (read(ends[0], &reached, sizeof reached) != sizeof reached) Die("read");
    waitpid(pid, nullptr, 0);
    close(ends[0]);
    close(ends[1]);
    return reached - start;
}

long StatusValue(pid_t pid, const std::string& thread, const std::string& key) {
    std::ifstream file("/proc/" + std::to_string(pid) + thread + "/status");
    for (std::string line; std::getline(file, line);)
        if (line.starts_with(key + ":")) return atol(line.c_str() + key.size() + 1);
    return -1;
}

long VoluntarySwitches(pid_t pid) {
    long sum = 0;
    for (const auto& thread : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task"))
        sum += StatusValue(pid, "/task/" + thread.path().filename().string(), "voluntary_ctxt_switches");
    return sum;
}

void Starts(const std::string& helper, const std::string& self, const std::string& application) {
    bench::Samples spawn, serving;
    for (int i = 0; i < kStarts; i++) {
        spawn.Add(static_cast<double>(SpawnedSmallProgramNs(self)) / 1e6);
        const uint64_t start = bench::NowNs();
        const pid_t pid = Spawn(helper);
        Client client;
        while (!client.TryConnect()) usleep(50);
        if (!client.Test()) Die("no answer");
        serving.Add(static_cast<double>(bench::NowNs() - start) / 1e6);
        if (i == 0) {  // the next ones start with the schedules stored
            for (int s = 0; s < kSchedules; s++) client.Add("Evening concert " + std::to_string(s), application);
            client.Test();
        }
        End(pid);
    }
    spawn.Print("spawn.minimal", "ms");
    serving.Print("helper.start_to_serving", "ms", "spawn.minimal");
}

void Idle(const std::string& helper) {
    const pid_t pid = Spawn(helper);
    Client client;
    while (!client.TryConnect()) usleep(50);
    if (!client.Test()) Die("no answer");
    usleep(2'500'000);  // two seconds after the last work memory is given back: idle begins then
    const long before = VoluntarySwitches(pid);
    sleep(kIdleSeconds);
    bench::One("helper.idle.switches", "1/window", static_cast<double>(VoluntarySwitches(pid) - before));
    bench::One("helper.idle.resident", "kB", static_cast<double>(StatusValue(pid, "", "VmRSS")));
    bench::One("helper.idle.anonymous", "kB", static_cast<double>(StatusValue(pid, "", "RssAnon")));
    End(pid);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "wait") {
        pause();
        return 0;
    }
    if (mode == "tell") {
        const uint64_t now = bench::NowNs();
        return write(atoi(getenv("BENCH_PIPE")), &now, sizeof now) == sizeof now ? 0 : 1;
    }
    const fs::path self = fs::read_symlink("/proc/self/exe");
    const std::string helper = self.parent_path().parent_path() / "schedulehelper.app/Contents/Linux/schedulehelper";
    const Home home(self);
    Starts(helper, self, home.application);
    Idle(helper);
}
