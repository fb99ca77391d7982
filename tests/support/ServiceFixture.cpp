#include "support/ServiceFixture.h"

#include "MainBundle.h"

#include <dispatch/pump.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

ServiceFixture::ServiceFixture() : runtime(folder.Path() + "/run") {
    mkdir(runtime.c_str(), 0700);
    const char* old = std::getenv("XDG_RUNTIME_DIR");
    oldRuntime = old ? old : "";
    setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    const std::string services = "<key>MachServices</key><dict><key>" + std::string(kService) + "</key><true/></dict>";
    platform::SetMainBundleRoot(folder.WriteBundle("Test.app", "com.example.test", services));
}

ServiceFixture::~ServiceFixture() {
    platform::SetMainBundleRoot("");
    if (oldRuntime.empty())
        unsetenv("XDG_RUNTIME_DIR");
    else
        setenv("XDG_RUNTIME_DIR", oldRuntime.c_str(), 1);
}

int ServiceFixture::ConnectRaw() const {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, SocketPath().c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return fd;
}

// In short turns: what the condition looks at may change on threads that don't wake the main queue.
void ServiceFixture::PumpUntil(const std::function<bool()>& condition, const char* what) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!dispatch_pump_main(condition, 2))
        if (std::chrono::steady_clock::now() > deadline) FAIL() << "no sign of " << what;
}

size_t ServiceFixture::OpenDescriptors() {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) count++;
    return count;
}
