#include "ServiceFolder.h"

#include "Passing.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <vector>

namespace platform {
namespace {

std::vector<std::string> Candidates() {
    std::vector<std::string> folders;
    const std::string uid = std::to_string(geteuid());
    if (const char* session = std::getenv("XDG_RUNTIME_DIR"); session && *session == '/') folders.emplace_back(session);
    folders.push_back("/run/user/" + uid);
    folders.push_back("/tmp/schedulehelper-" + uid);
    return folders;
}

// A folder that is ours, no link, and closed to everybody else; else nothing (errno; EPERM for one of others).
Descriptor OpenChecked(const std::string& path) {
    Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (!folder || fstat(folder.Get(), &info) != 0) return {};
    if (info.st_uid == geteuid() && !(info.st_mode & 077)) return folder;
    errno = EPERM;
    return {};
}

// The address of `name` in an open folder, by way of the process's own descriptor table.
std::optional<sockaddr_un> AddressIn(int folder, const std::string& name) {
    const std::string path = "/proc/self/fd/" + std::to_string(folder) + "/" + name;
    sockaddr_un address{};
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
        path.size() >= sizeof address.sun_path)
        return std::nullopt;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

std::optional<ucred> Peer(int socket) {
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) return std::nullopt;
    return peer;
}

bool Connect(int socket, const sockaddr_un& address) {
    const auto* where = reinterpret_cast<const sockaddr*>(&address);
    if (connect(socket, where, sizeof address) == 0) return true;
    if (errno != EAGAIN) return false;
    // The server's queue of connections is full: wait for room, within reason.
    const timeval patience{5, 0};
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    fcntl(socket, F_SETFL, 0);
    bool connected = false;
    do connected = connect(socket, where, sizeof address) == 0;
    while (!connected && errno == EINTR);  // a patience of its own makes any signal end the wait, even a continuation
    fcntl(socket, F_SETFL, O_NONBLOCK);
    return connected;
}

std::atomic<rlim_t> lastAccepted{RLIM_INFINITY};  // its number was the lowest free one

// Peers that come and stay must not take the last descriptors: the store and the starting of applications need some.
// The lowest free one is looked for only where the last peer's was near the bound.
bool IsDescriptorSpare(int any) {
    constexpr rlim_t kKept = 192;  // two for each thread of a full pool that looks for a running application, and more
    constexpr rlim_t kNear = 64;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return true;
    const rlim_t bound = limit.rlim_cur - std::min(kKept, limit.rlim_cur / 4);
    if (lastAccepted < bound && bound - lastAccepted > kNear) return true;
    const Descriptor lowestFree(fcntl(any, F_DUPFD_CLOEXEC, 0));
    return lowestFree && static_cast<rlim_t>(lowestFree.Get()) < bound;
}

}  // namespace

Descriptor ConnectIn(int folder, const std::string& name, pid_t& serverPid) {
    const auto address = AddressIn(folder, name);
    struct stat info {};
    if (!address || fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return {};
    if (!S_ISSOCK(info.st_mode) || info.st_uid != geteuid()) return {};
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket || !Connect(socket.Get(), *address)) return {};
    const auto server = Peer(socket.Get());
    if (!server || server->uid != geteuid()) return {};
    serverPid = server->pid;
    return socket;
}

Descriptor ConnectToService(const std::string& name, pid_t& serverPid) {
    for (const std::string& path : Candidates()) {
        const Descriptor folder = OpenChecked(path);
        if (!folder) continue;
        if (Descriptor socket = ConnectIn(folder.Get(), name, serverPid)) return socket;
    }
    return {};
}

Descriptor BindIn(int folder, const std::string& name) {
    const auto address = AddressIn(folder, name);
    if (!address) return {};
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) return {};
    if (unlinkat(folder, name.c_str(), 0) != 0 && errno != ENOENT) return {};
    if (bind(socket.Get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0) return {};
    if (fchmodat(folder, name.c_str(), 0600, 0) != 0 || listen(socket.Get(), SOMAXCONN) != 0) return {};
    return socket;
}

ServiceSocket BindService(const std::string& name) {
    for (const std::string& path : Candidates()) {
        if (path.starts_with("/tmp/")) mkdir(path.c_str(), 0700);
        const Descriptor folder = OpenChecked(path);
        if (!folder && IsPassing(errno)) return {};  // clients will look there
        if (!folder) continue;
        const std::string lockName = name + ".lock";
        ServiceSocket service;
        service.lockFile.Reset(openat(folder.Get(), lockName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (!service.lockFile) return {};
        if (flock(service.lockFile.Get(), LOCK_EX | LOCK_NB) != 0) return {};
        service.socket = BindIn(folder.Get(), name);
        if (!service.socket) return {};
        return service;
    }
    return {};
}

Descriptor AcceptPeer(int listener, pid_t& peerPid) {
    if (!IsDescriptorSpare(listener)) {
        errno = EMFILE;
        return {};
    }
    Descriptor socket(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) return {};
    lastAccepted = static_cast<rlim_t>(socket.Get());
    const auto peer = Peer(socket.Get());
    if (!peer || peer->uid != geteuid() || peer->pid <= 0) {
        errno = ECONNABORTED;
        return {};
    }
    peerPid = peer->pid;
    return socket;
}

}  // namespace platform
