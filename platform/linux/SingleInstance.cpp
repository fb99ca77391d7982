#include "SingleInstance.h"

#include "Clock.h"
#include "ServiceFolder.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>

namespace platform {

namespace {
constexpr uint32_t kRetryMs = 50;  // between looks at a lock whose holder doesn't listen yet
}

SingleInstance::SingleInstance(const std::string& store) {
    const std::filesystem::path path(store);
    name = path.filename();
    std::error_code error;
    std::filesystem::create_directories(path.parent_path(), error);
    folder.Reset(open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

bool SingleInstance::TryLock() {
    if (!lockFile)
        lockFile.Reset(openat(folder.Get(), (name + ".lock").c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    return lockFile && flock(lockFile.Get(), LOCK_EX | LOCK_NB) == 0;
}

SingleInstance::Outcome SingleInstance::Claim(uint32_t timeoutMs) {
    const uint64_t deadlineNs = CurrentClock().MonotonicNs() + uint64_t{timeoutMs} * 1'000'000;
    for (;;) {
        if (TryLock()) return Outcome::Alone;
        if (!lockFile || errno != EWOULDBLOCK) return Outcome::Unavailable;
        const uint64_t now = CurrentClock().MonotonicNs();
        if (now >= deadlineNs) return Outcome::Unanswered;
        if (AskToReopen(static_cast<uint32_t>((deadlineNs - now) / 1'000'000 + 1))) return Outcome::HandedOver;
    }
}

// Being accepted and answered with one byte is the acknowledgement. Whoever asks stays: each question is work for who
// answers, and one who is slow would answer none if all had gone before their turn. Its end closes the connection.
bool SingleInstance::AskToReopen(uint32_t timeoutMs) const {
    pid_t server = 0;
    const Descriptor socket = ConnectIn(folder.Get(), name + ".reopen", server);
    pollfd wait{socket.Get(), POLLIN, 0};  // a negative descriptor just waits
    const uint32_t waitMs = socket ? timeoutMs : std::min(timeoutMs, kRetryMs);
    char answer;
    return poll(&wait, 1, static_cast<int>(waitMs)) == 1 && recv(socket.Get(), &answer, 1, MSG_DONTWAIT) == 1;
}

Descriptor SingleInstance::ListenForReopen() const {
    return BindIn(folder.Get(), name + ".reopen");
}

Descriptor SingleInstance::TakeReopenRequest(int listener) {
    pid_t asker = 0;
    return AcceptPeer(listener, asker);
}

void SingleInstance::Acknowledge(const Descriptor& asker) {
    send(asker.Get(), "", 1, MSG_NOSIGNAL | MSG_DONTWAIT);
}

}  // namespace platform
