// LXPCConnection: an endpoint's record of one platform connection. Its destruction ends the connection. Used by one
// thread at a time (the endpoint's lock guards the list that it is in).
#pragma once

#include <xpc/xpc.h>

class LXPCConnection {
public:
    LXPCConnection() = default;
    explicit LXPCConnection(xpc_connection_t connection) : hConnection(connection) {}
    // Resumes if suspended (a suspended connection would never hear of its end), cancels, gives back one reference.
    virtual ~LXPCConnection();
    LXPCConnection(const LXPCConnection&) = delete;
    LXPCConnection& operator=(const LXPCConnection&) = delete;

    bool IsValid() const;
    // The suspension is a state here, not a count: twice suspended and once resumed is resumed.
    void Resume();
    void Suspend();
    void Cancel();
    void Retain();
    void Release();

    LXPCConnection* pNext = nullptr;
    xpc_connection_t hConnection = reinterpret_cast<xpc_connection_t>(-1);  // all bits set: none
    bool bSuspended = true;                                                 // platform connections start suspended
    unsigned int nRetain = 0;                                               // references that this object holds
};
