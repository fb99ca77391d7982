// LXPCMachServer: serves a named service to other programs of the same user, and checks each peer.
#pragma once

#include "xpc/LXPCServerBase.h"

class LXPCMachServer : public LXPCServerBase {
public:
    explicit LXPCMachServer(LXPCServerEventNotify* notify) : LXPCServerBase(notify, true) {}

    // Registers the service and gives the calling (main) thread over to the main queue: on success it never returns.
    // False when the service can't be had.
    bool Start(const char* serviceName);
};
