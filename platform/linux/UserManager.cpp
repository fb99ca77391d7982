#include "UserManager.h"

#include "Clock.h"
#include "EventPool.h"

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace platform {
namespace {

std::atomic<uint32_t> patienceMs{500};

// What is called of libsystemd. Once loaded, it stays.
struct BusLibrary {
    decltype(&sd_bus_new) create;
    decltype(&sd_bus_set_address) setAddress;
    decltype(&sd_bus_set_bus_client) setBusClient;
    decltype(&sd_bus_start) start;
    decltype(&sd_bus_is_ready) isReady;
    decltype(&sd_bus_process) process;
    decltype(&sd_bus_wait) wait;
    decltype(&sd_bus_call) call;
    decltype(&sd_bus_close_unref) closeUnref;
    decltype(&sd_bus_message_new_method_call) newMethodCall;
    decltype(&sd_bus_message_set_auto_start) setAutoStart;
    decltype(&sd_bus_message_append) append;
    decltype(&sd_bus_message_unref) messageUnref;
    decltype(&sd_bus_error_has_name) errorHasName;
    decltype(&sd_bus_error_free) errorFree;

    bool isWhole = true;

    explicit BusLibrary(void* library) {
        const auto find = [&](auto& function, const char* name) {
            function = reinterpret_cast<std::decay_t<decltype(function)>>(library ? dlsym(library, name) : nullptr);
            isWhole = isWhole && function;
        };
        find(create, "sd_bus_new");
        find(setAddress, "sd_bus_set_address");
        find(setBusClient, "sd_bus_set_bus_client");
        find(start, "sd_bus_start");
        find(isReady, "sd_bus_is_ready");
        find(process, "sd_bus_process");
        find(wait, "sd_bus_wait");
        find(call, "sd_bus_call");
        find(closeUnref, "sd_bus_close_unref");
        find(newMethodCall, "sd_bus_message_new_method_call");
        find(setAutoStart, "sd_bus_message_set_auto_start");
        find(append, "sd_bus_message_append");
        find(messageUnref, "sd_bus_message_unref");
        find(errorHasName, "sd_bus_error_has_name");
        find(errorFree, "sd_bus_error_free");
    }
};

const BusLibrary& Library() {
    static const BusLibrary& library = *new BusLibrary(dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL));
    return library;
}

// One request on a connection of its own. Each step gives an errno below zero when it fails.
class ScopeRequest {
public:
    explicit ScopeRequest(const BusLibrary& busLibrary)
        : library(busLibrary), deadlineNs(CurrentClock().MonotonicNs() + uint64_t{patienceMs} * 1'000'000) {}
    // The connection is closed with what is still to be sent: flushing would wait for a bus that doesn't read.
    ~ScopeRequest() {
        library.errorFree(&error);
        library.messageUnref(message);
        library.closeUnref(bus);
    }
    ScopeRequest(const ScopeRequest&) = delete;
    ScopeRequest& operator=(const ScopeRequest&) = delete;

    // The library's own wait for a bus that says nothing takes minutes.
    int Connect(const std::string& address) {
        int result = library.create(&bus);
        if (result >= 0) result = library.setAddress(bus, address.c_str());
        if (result >= 0) result = library.setBusClient(bus, 1);
        if (result >= 0) result = library.start(bus);
        while (result >= 0 && library.isReady(bus) == 0) {
            result = library.process(bus, nullptr);
            if (result != 0) continue;
            const uint64_t leftUs = LeftUs();
            if (leftUs == 0) return -ETIMEDOUT;
            result = library.wait(bus, leftUs);
            if (result == -EINTR) result = 0;
        }
        return result;
    }

    int Call(const std::string& unit, const std::string& bundle, pid_t pid) {
        int result = library.newMethodCall(bus, &message, "org.freedesktop.systemd1", "/org/freedesktop/systemd1",
                                           "org.freedesktop.systemd1.Manager", "StartTransientUnit");
        // Where no manager runs, a bus that starts one would start it without a session.
        if (result >= 0) result = library.setAutoStart(message, 0);
        if (result >= 0)
            result = library.append(message, "ssa(sv)a(sa(sv))", unit.c_str(), "fail", 4,  //
                                    "Description", "s", bundle.c_str(),                    //
                                    "Slice", "s", "app.slice",                             //
                                    "CollectMode", "s", "inactive-or-failed",              // failed ones don't pile up
                                    "PIDs", "au", 1, static_cast<uint32_t>(pid),           //
                                    0);
        const uint64_t leftUs = LeftUs();
        if (result >= 0) result = leftUs == 0 ? -ETIMEDOUT : library.call(bus, message, leftUs, &error, nullptr);
        return result;
    }

    bool IsManagerMissing() const {
        return library.errorHasName(&error, SD_BUS_ERROR_NAME_HAS_NO_OWNER) != 0 ||
               library.errorHasName(&error, SD_BUS_ERROR_SERVICE_UNKNOWN) != 0;
    }
    const char* Reason(int result) const { return error.message ? error.message : std::strerror(-result); }

private:
    uint64_t LeftUs() const {
        const uint64_t nowNs = CurrentClock().MonotonicNs();
        return nowNs < deadlineNs ? (deadlineNs - nowNs) / 1'000 : 0;
    }

    const BusLibrary& library;
    const uint64_t deadlineNs;
    sd_bus* bus = nullptr;
    sd_bus_message* message = nullptr;
    sd_bus_error error{};
};

// Addresses keep some characters for themselves; any may be told by its number.
std::string EscapedForAddress(const std::string& path) {
    std::string escaped;
    for (const char character : path) {
        char number[4];
        const auto byte = static_cast<unsigned char>(character);
        std::snprintf(number, sizeof number, "%%%02x", byte);
        if (std::isalnum(byte) || std::strchr("-_/.", character))
            escaped += character;
        else
            escaped += number;
    }
    return escaped;
}

// Empty when there is none.
std::string BusAddress() {
    if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address) return address;
    const char* folder = std::getenv("XDG_RUNTIME_DIR");
    if (!folder || *folder != '/') return "";
    const std::string socket = std::string(folder) + "/bus";
    return access(socket.c_str(), F_OK) == 0 ? "unix:path=" + EscapedForAddress(socket) : "";
}

// app-<name>-<number>.scope, the form by which desktops know an application's processes. The number is one that no unit
// had before.
std::string ScopeOf(const std::string& bundle) {
    std::filesystem::path path(bundle);
    if (!path.has_filename()) path = path.parent_path();  // a slash at the end
    std::string name = path.stem().string().substr(0, 100);
    for (char& character : name)
        if (!std::isalnum(static_cast<unsigned char>(character))) character = '_';
    return "app-" + name + "-" + std::to_string(CurrentClock().MonotonicNs()) + ".scope";
}

void RequestScope(const std::string& address, const std::string& unit, const std::string& bundle,
                  ChildProcess& application) {
    if (!Library().isWhole) return;
    ScopeRequest request(Library());
    int result = request.Connect(address);
    if (result < 0 && result != -ETIMEDOUT) return;  // nobody is there
    // The number of one that has ended may be another's already.
    if (result >= 0 && application.IsRunning()) result = request.Call(unit, bundle, application.Pid());
    if (result < 0 && !request.IsManagerMissing())
        std::fprintf(stderr, "%s runs without a scope of its own: %s\n", bundle.c_str(), request.Reason(result));
}

}  // namespace

void AskForScope(std::shared_ptr<ChildProcess> application, const std::string& bundle) {
    const std::string address = BusAddress();
    if (address.empty()) return;
    EventPool::Shared().Submit([address, unit = ScopeOf(bundle), bundle, kept = std::move(application)] {
        RequestScope(address, unit, bundle, *kept);
    });
}

void SetUserManagerPatience(uint32_t ms) {
    patienceMs = ms;
}

}  // namespace platform
