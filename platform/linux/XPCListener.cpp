#include "XPCListener.h"

#include "ExitGate.h"
#include "MainQueue.h"
#include "XPCConnection.h"

#include <cerrno>
#include <cstdio>

namespace platform {

XPCListener::XPCListener(ServiceSocket bound) : xpc_object_s(XPC_TYPE_CONNECTION), service(std::move(bound)) {}

XPCRef<XPCListener> XPCListener::Create(const std::string& serviceName) {
    ServiceSocket bound = BindService(serviceName);
    if (!bound.socket) return {};
    return XPCRef<XPCListener>::Adopt(new XPCListener(std::move(bound)));
}

void XPCListener::Resume() {
    if (resumed) return;
    resumed = true;
    references.fetch_add(1, std::memory_order_relaxed);  // the registration's
    Listen();
}

// Once the main thread is the queue's, nobody starts the service a second time: it is tried until it works.
void XPCListener::Listen() {
    if (!service.socket || MainQueue::Shared().Events().AddLasting(service.socket.Get(), EPOLLIN, *this)) return;
    std::perror("listening");
    pause.Then([self = XPCRef<XPCListener>::Retain(this)] { self->Listen(); });
}

// On the main thread, which therefore doesn't wait on its set: no event of the socket is on its way.
void XPCListener::Cancel() {
    handler = nullptr;
    if (!service.socket) return;
    MainQueue::Shared().Events().Remove(service.socket.Get());
    service = {};
    if (resumed) xpc_release(this);
}

// One peer for each event: other main-queue work comes in between, and no call is needed to find that nobody waits.
void XPCListener::OnReady(uint32_t) {
    const auto self = XPCRef<XPCListener>::Retain(this);  // the handler may cancel
    if (AcceptOne() || !AcceptPause::IsNeeded(errno)) return;
    Look(0);
    pause.Then([self] { self->Look(EPOLLIN); });
}

void XPCListener::Look(uint32_t events) {
    if (service.socket) MainQueue::Shared().Events().ChangeLasting(service.socket.Get(), events, *this);
}

// False with errno when nobody more can be accepted now. A peer that is gone again, or that was turned away, is nobody.
bool XPCListener::AcceptOne() {
    pid_t pid = 0;
    Descriptor socket = AcceptPeer(service.socket.Get(), pid);
    if (!socket) return errno == ECONNABORTED || errno == EINTR || errno == EPROTO;
    auto peer = XPCConnection::Peer(std::move(socket), pid);
    ExitGatePassage passage;
    if (const xpc_handler_t running = handler) running(peer.get());
    if (peer->references.load(std::memory_order_acquire) == 1) peer->Cancel();  // refused
    return true;
}

}  // namespace platform
