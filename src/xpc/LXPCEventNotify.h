// The event sinks of XPC endpoints. Not owned by the endpoint; must outlive it. Callbacks run without any lock:
// messages and errors of one connection one at a time on a pool thread, replies on the main queue,
// EvInvalidConnectionAttempt on the main queue. A callback may call its endpoint, and may destroy it.
#pragma once

#include "text/LList.h"
#include "xpc/LXPCData.h"

#include <cstdint>

enum LXPCErrorType : int32_t {
    xpcErrorOther = 0,
    xpcErrorConnectionInvalid = 1,      // the connection is over for good
    xpcErrorConnectionInterrupted = 2,  // a client's server went away; its next message connects again
    xpcErrorTerminationImminent = 3,
};

class LXPCEventNotify {
public:
    // `connection` identifies the connection to SendMessage, SendReply and Disconnect.
    virtual void EvConnectionError(long connection, LXPCErrorType error) = 0;
    // `message` identifies the message to SendReply until the call returns.
    virtual void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) = 0;
    virtual void EvReplyReceived(long connection, const LList<LXPCDataListable>& items) = 0;
    // A message that expects no reply, or a reply, was handed to the system.
    virtual void EvMessageSent(long connection) = 0;

protected:
    ~LXPCEventNotify() = default;
};

class LXPCServerEventNotify : public LXPCEventNotify {
public:
    // A peer was refused because its process number can't be one.
    virtual void EvInvalidConnectionAttempt() = 0;

protected:
    ~LXPCServerEventNotify() = default;
};
