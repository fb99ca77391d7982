#include "threads/LSignalObjectNamed.h"

#include "files/LFile.h"
#include "text/LCopyBounded.h"
#include "threads/LSignalObject.h"

#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr unsigned long kPathSize = 104;
constexpr int kBacklog = 5;

int OpenSocket(int flags) {
    return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
}

const sockaddr* Generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

LSignalObjectNamed::LSignalObjectNamed(const char* name) {
    static_assert(sizeof address.sun_path >= kPathSize);
    char folder[LTextBufferSize], path[LTextBufferSize];
    LFile::GetUserDataFolder(folder);
    LFile::_MakeFilePath(path, folder, name, "");
    address.sun_family = AF_UNIX;
    if (std::strlen(path) < kPathSize) LCopyBounded(address.sun_path, path, kPathSize);
}

LSignalObjectNamed::~LSignalObjectNamed() {
    if (connection) ::unlink(address.sun_path);
}

void LSignalObjectNamed::Signal() const {
    const LDescriptor socket(address.sun_path[0] ? OpenSocket(SOCK_NONBLOCK) : -1);
    if (!socket || ::connect(socket.Get(), Generic(address), sizeof address) != 0) return;
    const char one = 1;
    ::send(socket.Get(), &one, 1, MSG_NOSIGNAL);
}

bool LSignalObjectNamed::WaitSignal(unsigned int timeoutMs) {
    const LDescriptor listener(address.sun_path[0] ? OpenSocket(SOCK_NONBLOCK) : -1);
    if (!listener || ::bind(listener.Get(), Generic(address), sizeof address) != 0) return false;
    LDescriptor accepted;
    pollfd waited[] = {{listener.Get(), POLLIN, 0}};
    if (::listen(listener.Get(), kBacklog) == 0 && LPoll(waited, timeoutMs) > 0)
        accepted.Reset(::accept4(listener.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!accepted) {
        ::unlink(address.sun_path);
        return false;
    }
    connection = std::move(accepted);
    return true;
}

void LSignalObjectNamed::Reset() {
    if (connection) LDrainDescriptor(connection.Get());
}
