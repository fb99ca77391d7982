#include "net/LProcessTCP.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr unsigned int kSliceMs = 200;
constexpr int kSendBuffer = 32'768;
constexpr int kMaxSegment = kSendBuffer / 4;

// The empty slices that a time-out allows.
class Slices {
public:
    explicit Slices(unsigned int timeoutMs)
        : left(std::max(timeoutMs / kSliceMs + (timeoutMs % kSliceMs != 0), 1u)),
          isEndless(timeoutMs == kSignalNoTimeOut) {}

    bool IsUsedUp() { return !isEndless && --left == 0; }

private:
    unsigned int left;
    const bool isEndless;
};

// 1 when the socket is ready, 0 after a slice without, -1 on failure. An interruption counts as a slice.
int WaitSlice(int socket, short events) {
    if (socket < 0) return -1;
    pollfd waited{socket, events, 0};
    const int ready = ::poll(&waited, 1, kSliceMs);
    if (ready < 0) return errno == EINTR ? 0 : -1;
    return ready > 0 && (waited.revents & POLLNVAL) ? -1 : ready;
}

// Where nobody listens, the system may pick the very port that is asked for as the socket's own, and connects the
// socket to itself. Kept, it would also keep the port from whoever is to listen.
bool IsItsOwnPeer(int socket) {
    sockaddr_in own{}, peer{};
    socklen_t ownSize = sizeof own, peerSize = sizeof peer;
    return ::getsockname(socket, reinterpret_cast<sockaddr*>(&own), &ownSize) == 0 &&
           ::getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &peerSize) == 0 && own.sin_port == peer.sin_port &&
           own.sin_addr.s_addr == peer.sin_addr.s_addr;
}

// Whether the connection was made: a refused one is ready for writing, too.
bool IsConnected(int socket) {
    int error = 0;
    socklen_t size = sizeof error;
    return ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0 && !IsItsOwnPeer(socket);
}

int WaitForConnection(LProcessInterface& process, int socket, unsigned int timeoutMs) {
    Slices slices(timeoutMs);
    for (;;) {
        const int ready = WaitSlice(socket, POLLOUT);
        if (ready != 0) return ready > 0 && IsConnected(socket) ? processDone : processFailed;
        if (process.IsToStop()) return processStopped;
        if (slices.IsUsedUp()) return processFailed;
    }
}

int Receive(int socket, void* buffer, unsigned long size, unsigned long& got, int flags = 0) {
    const ssize_t received = ::recv(socket, buffer, size, flags);
    got = received > 0 ? static_cast<unsigned long>(received) : 0;
    return got > 0 ? processDone : processFailed;
}

}  // namespace

int LOpenSocketTCP() {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (socket < 0) return socket;
    ::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    // Loopback's segments are as large as this buffer. The receiver answers every other one at once and a single one
    // after 40 ms: so several have to fit.
    ::setsockopt(socket, IPPROTO_TCP, TCP_MAXSEG, &kMaxSegment, sizeof kMaxSegment);
    return socket;
}

int ProcessConnect(LProcessInterface& process, LIPSocketTCP& socket, const LIPAddressWithPort& address,
                   unsigned int timeoutMs) {
    socket.Adopt(LOpenSocketTCP());
    int result = processFailed;
    if (socket.Descriptor() >= 0 && address.name.sin_addr.s_addr != INADDR_NONE) {
        const auto* const name = reinterpret_cast<const sockaddr*>(&address.name);
        if (::connect(socket.Descriptor(), name, sizeof address.name) == 0)
            result = IsConnected(socket.Descriptor()) ? processDone : processFailed;
        else if (errno == EINPROGRESS)
            result = WaitForConnection(process, socket.Descriptor(), timeoutMs);
    }
    if (result != processDone) socket.Close();
    return result;
}

int ProcessConnect(LProcessInterface& process, LIPSocketTCP& socket, const LIPAddressMultiHomedWithPort& addresses,
                   unsigned int timeoutMs) {
    for (uint32_t i = 0; i < std::min(addresses.count, LIPAddressMultiHomedWithPort::kMaxAddresses); i++) {
        const LIPAddressWithPort one(addresses.addresses[i], static_cast<uint16_t>(addresses.port));
        const int result = ProcessConnect(process, socket, one, timeoutMs);
        if (result != processFailed) return result;
    }
    return processFailed;
}

int ProcessSend(LProcessInterface& process, LIPSocketTCPRef socket, const void* data, unsigned long size,
                unsigned int timeoutMs) {
    Slices slices(timeoutMs);
    const char* rest = static_cast<const char*>(data);
    for (;;) {
        if (process.IsToStop()) return processStopped;
        const ssize_t sent = ::send(socket.descriptor, rest, size, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK) return processFailed;
        if (sent > 0) {
            rest += sent;
            size -= static_cast<unsigned long>(sent);
        }
        if (size == 0) return processDone;
        const int ready = WaitSlice(socket.descriptor, POLLOUT);
        if (ready < 0 || (ready == 0 && slices.IsUsedUp())) return processFailed;
    }
}

int ProcessWaitForDataOrClose(LProcessInterface& process, LIPSocketTCPRef socket, unsigned int timeoutMs) {
    Slices slices(timeoutMs);
    for (;;) {
        if (process.IsToStop()) return processStopped;
        if (socket.descriptor < 0) return processFailed;
        if (WaitSlice(socket.descriptor, POLLIN) != 0) return processDone;
        if (slices.IsUsedUp()) return processFailed;
    }
}

int ProcessRecvReady(LProcessInterface& process, LIPSocketTCPRef socket, void* buffer, unsigned long size,
                     unsigned long& got, unsigned int timeoutMs) {
    got = 0;
    if (size == 0) return processDone;
    if (process.IsToStop()) return processStopped;
    // What has come already costs no wait.
    errno = 0;
    const int result = Receive(socket.descriptor, buffer, size, got, MSG_DONTWAIT);
    if (result == processDone || (errno != EAGAIN && errno != EINTR)) return result;
    if (const int waited = ProcessWaitForDataOrClose(process, socket, timeoutMs)) return waited;
    return Receive(socket.descriptor, buffer, size, got);
}

int ProcessRecvBytes(LProcessInterface& process, LIPSocketTCPRef socket, void* buffer, unsigned long size,
                     unsigned long& got, unsigned int timeoutMs) {
    got = 0;
    while (got < size) {
        unsigned long more = 0;
        const int result =
            ProcessRecvReady(process, socket, static_cast<char*>(buffer) + got, size - got, more, timeoutMs);
        if (result != processDone) return result;
        got += more;
    }
    return processDone;
}

int ProcessRecvBytes(LProcessInterface& process, LIPSocketTCPRef socket, void* buffer, unsigned long size,
                     unsigned int timeoutMs) {
    unsigned long got = 0;
    return ProcessRecvBytes(process, socket, buffer, size, got, timeoutMs);
}

int ProcessRecvByte(LProcessInterface& process, LIPSocketTCPRef socket, unsigned char& byte, unsigned int timeoutMs) {
    unsigned long got = 0;
    return ProcessRecvReady(process, socket, &byte, 1, got, timeoutMs);
}

int ProcessRecvToCharacter(LProcessInterface& process, LIPSocketTCPRef socket, void* buffer, unsigned long size,
                           unsigned long& got, const char* terminators, unsigned int timeoutMs) {
    got = 0;
    if (const int result = ProcessWaitForDataOrClose(process, socket, timeoutMs)) return result;
    const ssize_t waiting = ::recv(socket.descriptor, buffer, size, MSG_PEEK);
    if (waiting <= 0) return processFailed;
    const char* const begin = static_cast<const char*>(buffer);
    const char* const end = begin + waiting;
    const char* const last =
        std::find_if(begin, end, [&](char c) { return c && terminators && std::strchr(terminators, c); });
    const auto wanted = static_cast<size_t>(last - begin) + (last != end);
    return Receive(socket.descriptor, buffer, wanted, got);
}

bool ProcessRecvAll(LProcessInterface& process, LIPSocketTCPRef socket, void* buffer, unsigned long size,
                    unsigned long& got, unsigned int timeoutMs) {
    return ProcessRecvBytes(process, socket, buffer, size, got, timeoutMs) == processStopped;
}
