#include "xpc/LXPCConnection.h"

LXPCConnection::~LXPCConnection() {
    if (!IsValid()) return;
    Resume();
    Cancel();
    Release();
}

bool LXPCConnection::IsValid() const {
    return hConnection != reinterpret_cast<xpc_connection_t>(-1);
}

void LXPCConnection::Resume() {
    if (!bSuspended) return;
    xpc_connection_resume(hConnection);
    bSuspended = false;
}

void LXPCConnection::Suspend() {
    if (bSuspended) return;
    xpc_connection_suspend(hConnection);
    bSuspended = true;
}

void LXPCConnection::Cancel() {
    if (IsValid()) xpc_connection_cancel(hConnection);
}

void LXPCConnection::Retain() {
    xpc_retain(hConnection);
    nRetain++;
}

void LXPCConnection::Release() {
    if (nRetain == 0) return;
    xpc_release(hConnection);
    nRetain--;
}
