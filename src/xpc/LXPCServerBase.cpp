#include "xpc/LXPCServerBase.h"

#include <memory>

namespace {
constexpr pid_t kFirstProcess = 1;
constexpr pid_t kLastProcess = 99'999;
}  // namespace

std::atomic<LXPCServerBase*> LXPCServerBase::pServer{nullptr};

LXPCServerBase::LXPCServerBase(LXPCServerEventNotify* notify, bool checkPeer)
    : LXPCBase(notify), pServerNotify(notify), bCheckPeer(checkPeer) {
    pServer = this;
}

LXPCServerBase::~LXPCServerBase() {
    token.Close();
    pServer = nullptr;
    DestroyConnections();
}

void LXPCServerBase::NewConnectionHandler(xpc_connection_t peer) {
    if (!peer) return;
    if (bCheckPeer) {
        const pid_t pid = xpc_connection_get_pid(peer);
        if (pid < kFirstProcess || pid > kLastProcess) return pServerNotify->EvInvalidConnectionAttempt();
    }
    // In the list and retained before it is resumed, under the lock: from then on its events may disconnect it again.
    auto connection = std::make_unique<LXPCConnection>(peer);
    connection->Retain();
    LMutexLock guard(lock);
    LXPCConnection& kept = *connection;
    connections.Add(connection.release());
    SetupConnectionHandlerAndResume(kept);
}

void LXPCServerBase::Disconnect(long connection) {
    std::unique_ptr<LXPCConnection> detached;
    LMutexLock guard(lock);
    for (LListIterator<LXPCConnection> it(connections); it; it.Next()) {
        if (reinterpret_cast<long>(it->hConnection) != connection) continue;
        detached.reset(connections.Detach(it));
        return;
    }
}
