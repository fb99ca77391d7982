// LXPCBase: the base of all XPC endpoints. Owns the keys that the endpoint reads and its live connections, turns XPC
// events into calls of its sink, and sends. All operations from any thread.
//
// The one mutex guards the two lists; no callback runs under it. Callbacks are let in by the token: the destructor of a
// concrete endpoint closes it first, holding no lock, and so waits for those that run on other threads.
#pragma once

#include "threads/LCallbackToken.h"
#include "xpc/LXPCConnection.h"
#include "xpc/LXPCEventNotify.h"

#include <bsd/LMutex.h>

class LXPCBase {
public:
    virtual ~LXPCBase() = default;
    LXPCBase(const LXPCBase&) = delete;
    LXPCBase& operator=(const LXPCBase&) = delete;

    // Registers a key to be read. A key registered twice yields two items.
    void AddKey(const char* name, LXPCDataType type);
    void AddKey(const LXPCDictionaryKeyListable& key);

    // Sends on a connection named by its identifier; nothing happens when no such connection lives. With a reply: at
    // most one of EvReplyReceived and EvConnectionError follows; without: EvMessageSent.
    void SendMessage(long connection, const LList<LXPCDataListable>& items, bool withReply);
    // Answers a message while its EvMessageReceived runs; nothing happens when it expects no reply. EvMessageSent
    // follows.
    void SendReply(long connection, long message, const LList<LXPCDataListable>& items);

protected:
    explicit LXPCBase(LXPCEventNotify* notify) : pNotify(notify) {}

    // Installs the event handler on the connection, then resumes it if it is suspended.
    void SetupConnectionHandlerAndResume(LXPCConnection& c);
    void DestroyConnections();
    void Send(xpc_connection_t connection, xpc_object_t message, bool withReply);

    LXPCEventNotify* const pNotify;
    LCallbackToken token;

    LMutex lock;
    LList<LXPCDictionaryKeyListable> keys L_GUARDED_BY(lock);
    LList<LXPCConnection> connections L_GUARDED_BY(lock);  // newest first

private:
    void ReadItems(xpc_object_t message, LList<LXPCDataListable>& items);
    void HandleEvent(xpc_object_t event, bool isReply);
    void SendAndTell(xpc_connection_t connection, xpc_object_t message);
};

// Tells the sink of an XPC error object, by identity.
void ErrorHandler(void* error, long connection, LXPCEventNotify* notify);
