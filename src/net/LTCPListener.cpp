#include "net/LTCPListener.h"

#include "debug/LDebugThreads.h"
#include "net/LProcessTCP.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <sys/socket.h>

namespace {

constexpr unsigned int kRetryMs = 30'000;
constexpr int kBacklog = 50;

LDescriptor Listen(uint16_t port) {
    LDescriptor listener(LOpenSocketTCP());
    const int yes = 1;
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    ::setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (::bind(listener.Get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0 ||
        ::listen(listener.Get(), kBacklog) != 0)
        listener.Reset();
    return listener;
}

// The connection, or the network on the way to it, went before it was accepted: nothing is wrong with the listener.
bool IsThePeersTrouble(int error) {
    static constexpr int kErrors[] = {ECONNABORTED, EAGAIN, EINTR,        EPROTO,     ENETDOWN,    ENOPROTOOPT,
                                      EHOSTDOWN,    ENONET, EHOSTUNREACH, EOPNOTSUPP, ENETUNREACH, EPERM};
    return std::find(std::begin(kErrors), std::end(kErrors), error) != std::end(kErrors);
}

}  // namespace

void LTCPListener::ThreadFunction() {
    LDebugThreadSetName("LTCPListener");
    do AcceptConnections();
    while (!ProcessWait(kRetryMs));
}

void LTCPListener::AcceptConnections() {
    const LDescriptor listener = Listen(port);
    while (listener) {
        pollfd waited[] = {LPollFor(stopSignal), {listener.Get(), POLLIN, 0}};
        const int ready = LPoll(waited, kSignalNoTimeOut);
        if (ready < 0 && errno == EINTR) continue;
        if (ready < 0 || !waited[1].revents) return;
        LIPSocketTCP connection(::accept4(listener.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (connection.Descriptor() >= 0)
            EvConnectionAccepted(connection);
        else if (!IsThePeersTrouble(errno))
            return;
        if (IsToStop()) return;
    }
}
