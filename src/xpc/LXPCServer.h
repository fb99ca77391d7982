// LXPCServer: runs as the service of an application's bundle. Peers aren't checked: only the application reaches it.
#pragma once

#include "xpc/LXPCServerBase.h"

class LXPCServer : public LXPCServerBase {
public:
    explicit LXPCServer(LXPCServerEventNotify* notify) : LXPCServerBase(notify, false) {}

    [[noreturn]] void Start();

    // Hands a peer to the server that pServer names; ignored when there is none.
    static void StaticNewConnectionHandler(xpc_connection_t peer);
};
