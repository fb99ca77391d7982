// LXPCConnectionClient: a client's record of one connection, under the name and number that its caller gave.
#pragma once

#include "text/LCopyBounded.h"
#include "xpc/LXPCConnection.h"

class LXPCConnectionClient : public LXPCConnection {
public:
    LXPCConnectionClient() = default;
    // Takes over the reference that creating the connection gave. The name must fit.
    LXPCConnectionClient(xpc_connection_t connection, const char* serviceName, unsigned long id)
        : LXPCConnection(connection), nServiceId(id) {
        nRetain = 1;
        LCopyBounded(szServiceName, serviceName, sizeof szServiceName);
    }

    char szServiceName[LTextBufferSize] = "";
    unsigned long nServiceId = 0;
};
