#include "UserManager.h"
#include "support/ProbeApplication.h"

#include <AppKit/AppKit.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char* kManager = "org.freedesktop.systemd1";
const std::string kIdentifier = "com.example.scoped" + std::to_string(::getpid());

bool Launch(const ProbeApplication& probe) {
    return NSWorkspace::sharedWorkspace().launchApplication(NSString(probe.Bundle()));
}

int Checked(int result, const char* what) {
    if (result < 0) throw std::runtime_error(std::string(what) + ": " + strerror(-result));
    return result;
}

// What this test's process takes for its user's surroundings, as long as it lives.
class Variable {
public:
    Variable(const char* variable, const std::string& value) : name(variable) {
        if (const char* old = ::getenv(name)) before = old;
        ::setenv(name, value.c_str(), 1);
    }
    ~Variable() { before.empty() ? ::unsetenv(name) : ::setenv(name, before.c_str(), 1); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* const name;
    std::string before;
};

// A bus daemon at the place below the runtime folder where a user's bus lies.
class UserBus {
public:
    UserBus() {
        int ends[2];
        Checked(::pipe2(ends, O_CLOEXEC), "pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        std::string words[] = {"dbus-daemon", "--session",       "--nofork",
                               "--nopidfile", "--print-address", "--address=" + Address()};
        std::vector<char*> arguments;
        for (std::string& word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        const int error = ::posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
        char byte;
        const bool serves = error == 0 && ::read(ends[0], &byte, 1) == 1;  // it tells its address once it listens
        ::close(ends[0]);
        if (!serves) throw std::runtime_error("no dbus-daemon");
    }
    ~UserBus() {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    UserBus(const UserBus&) = delete;
    UserBus& operator=(const UserBus&) = delete;

    std::string Address() const { return "unix:path=" + folder.Path() + "/runtime%2c%20of%201/bus"; }

private:
    const TempFolder folder;
    const std::string runtime = folder.MakeFolder("runtime, of 1");  // its characters have a meaning in addresses
    pid_t pid = 0;
    const Variable runtimeFolder{"XDG_RUNTIME_DIR", runtime};
    const Variable noOther{"DBUS_SESSION_BUS_ADDRESS", ""};
};

// For as long as it lives, bus and manager may take their time.
class Patience {
public:
    Patience() { platform::SetUserManagerPatience(UINT32_MAX); }
    ~Patience() { platform::SetUserManagerPatience(500); }
    Patience(const Patience&) = delete;
    Patience& operator=(const Patience&) = delete;
};

struct ScopeCall {
    std::string unit, mode, slice, collectMode;
    std::vector<pid_t> pids;
    bool mayStartTheManager = true;
};

// In the place of the user's service manager. Used by one thread at a time.
class Manager {
public:
    explicit Manager(const UserBus& userBus) {
        Checked(sd_bus_new(&bus), "sd_bus_new");
        Checked(sd_bus_set_address(bus, userBus.Address().c_str()), "sd_bus_set_address");
        Checked(sd_bus_set_bus_client(bus, 1), "sd_bus_set_bus_client");
        Checked(sd_bus_start(bus), "sd_bus_start");
        Checked(sd_bus_request_name(bus, kManager, 0), "sd_bus_request_name");
    }
    ~Manager() { sd_bus_flush_close_unref(bus); }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    // Waits for the next call and answers it: with a job, or by refusing it.
    ScopeCall Serve(bool refuses = false) {
        for (;;) {
            sd_bus_message* message = nullptr;
            if (Checked(sd_bus_process(bus, &message), "sd_bus_process") == 0)
                Checked(sd_bus_wait(bus, UINT64_MAX), "sd_bus_wait");
            if (!message) continue;
            const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> kept(message, sd_bus_message_unref);
            if (sd_bus_message_is_method_call(message, "org.freedesktop.systemd1.Manager", "StartTransientUnit") <= 0)
                continue;
            ScopeCall call = Read(message);
            if (refuses)
                Checked(sd_bus_reply_method_errorf(message, SD_BUS_ERROR_ACCESS_DENIED, "refused"), "reply");
            else
                Checked(sd_bus_reply_method_return(message, "o", "/org/freedesktop/systemd1/job/1"), "reply");
            Checked(sd_bus_flush(bus), "sd_bus_flush");
            return call;
        }
    }

private:
    static ScopeCall Read(sd_bus_message* message) {
        ScopeCall call;
        call.mayStartTheManager = sd_bus_message_get_auto_start(message) != 0;
        const char *unit, *mode, *name;
        Checked(sd_bus_message_read(message, "ss", &unit, &mode), "unit");
        call.unit = unit;
        call.mode = mode;
        Checked(sd_bus_message_enter_container(message, 'a', "(sv)"), "properties");
        while (Checked(sd_bus_message_enter_container(message, 'r', "sv"), "property") > 0) {
            Checked(sd_bus_message_read(message, "s", &name), "name");
            const char* text = "";
            if (const std::string property = name; property == "PIDs") {
                const void* numbers;
                size_t size;
                Checked(sd_bus_message_enter_container(message, 'v', "au"), "PIDs");
                Checked(sd_bus_message_read_array(message, 'u', &numbers, &size), "PIDs");
                Checked(sd_bus_message_exit_container(message), "PIDs");
                for (size_t i = 0; i < size / sizeof(uint32_t); i++)
                    call.pids.push_back(static_cast<pid_t>(static_cast<const uint32_t*>(numbers)[i]));
            } else {
                Checked(sd_bus_message_read(message, "v", "s", &text), name);
                if (property == "Slice") call.slice = text;
                if (property == "CollectMode") call.collectMode = text;
            }
            Checked(sd_bus_message_exit_container(message), "property");
        }
        return call;
    }

    sd_bus* bus = nullptr;
};

// Standard error, for as long as it lives.
class Complaints {
public:
    Complaints() {
        Checked(::pipe2(ends, O_CLOEXEC), "pipe");
        ::dup2(ends[1], STDERR_FILENO);
    }
    ~Complaints() {
        ::dup2(before, STDERR_FILENO);
        for (const int descriptor : {before, ends[0], ends[1]}) ::close(descriptor);
    }
    Complaints(const Complaints&) = delete;
    Complaints& operator=(const Complaints&) = delete;

    // Waits for the next.
    std::string Next() const {
        char text[500];
        const ssize_t length = ::read(ends[0], text, sizeof text);
        return {text, length > 0 ? static_cast<size_t>(length) : 0};
    }

private:
    const int before = ::dup(STDERR_FILENO);
    int ends[2];
};

// A socket that takes peers and never says anything.
class SilentSocket {
public:
    explicit SilentSocket(const std::string& path) : listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(listener, 1) != 0)
            throw std::runtime_error(path);
    }
    ~SilentSocket() { ::close(listener); }
    SilentSocket(const SilentSocket&) = delete;
    SilentSocket& operator=(const SilentSocket&) = delete;

    // Takes the next peer and waits until it has gone.
    void OutlastPeer() const {
        const int peer = ::accept(listener, nullptr, nullptr);
        char bytes[256];
        while (::read(peer, bytes, sizeof bytes) > 0) {
        }
        ::close(peer);
    }

private:
    const int listener;
};

}  // namespace

TEST(UserManager, AnApplicationGetsAScopeOfItsOwn) {
    const Patience patience;
    const UserBus bus;
    Manager manager(bus);
    std::string units[2];
    for (std::string& unit : units) {
        ProbeApplication probe(kIdentifier);
        ASSERT_TRUE(Launch(probe));
        const ScopeCall call = manager.Serve();
        EXPECT_EQ(call.pids, std::vector{static_cast<pid_t>(std::stoi(probe.Report()["pid"]))});
        EXPECT_EQ(call.mode, "fail");
        EXPECT_EQ(call.slice, "app.slice");
        EXPECT_EQ(call.collectMode, "inactive-or-failed");
        EXPECT_FALSE(call.mayStartTheManager);
        EXPECT_TRUE(call.unit.starts_with("app-Probe-") && call.unit.ends_with(".scope")) << call.unit;
        unit = call.unit;
    }
    EXPECT_NE(units[0], units[1]);
}

// The manager answers only after the launch, however long that takes.
TEST(UserManager, NoLaunchWaitsForIt) {
    const Patience patience;
    const UserBus bus;
    Manager manager(bus);
    ProbeApplication probe(kIdentifier);
    EXPECT_TRUE(Launch(probe));
    EXPECT_EQ(probe.Report().at("session"), std::to_string(manager.Serve().pids.at(0)));
}

TEST(UserManager, WithoutItsHelpApplicationsStartAllTheSame) {
    const auto launches = [](const char* what) {
        auto probe = std::make_unique<ProbeApplication>(kIdentifier);
        EXPECT_TRUE(Launch(*probe)) << what;
        EXPECT_FALSE(probe->Report()["pid"].empty()) << what;
        return probe;
    };
    {
        const Patience patience;
        const UserBus bus;
        {
            Manager manager(bus);
            const Complaints complaints;
            const auto runs = launches("a manager that refuses");  // for one that has ended nothing is asked
            manager.Serve(true);
            EXPECT_THAT(complaints.Next(), testing::EndsWith("Probe.app runs without a scope of its own: refused\n"));
        }
        launches("a bus without a manager");
    }
    const TempFolder folder;
    for (const std::string& address :
         {"unix:path=" + folder.Join("none"), std::string("no address"), std::string("unix:path=/dev/null")}) {
        const Variable bus("DBUS_SESSION_BUS_ADDRESS", address);
        launches(address.c_str());
    }
    const Variable noAddress("DBUS_SESSION_BUS_ADDRESS", "");
    const Variable noFolder("XDG_RUNTIME_DIR", folder.Path());
    launches("no bus");
}

TEST(UserManager, ABusThatSaysNothingIsLeftSoon) {
    const TempFolder folder;
    const SilentSocket silent(folder.Join("bus"));
    const Variable bus("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + folder.Join("bus"));
    ProbeApplication probe(kIdentifier);
    const auto before = std::chrono::steady_clock::now();
    ASSERT_TRUE(Launch(probe));
    probe.Report();
    silent.OutlastPeer();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(30));  // by itself: a minute and a half
}
