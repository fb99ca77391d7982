// LXPCClient: an endpoint that opens connections to named services and sends over them. A connection is known by its
// service's name (ignoring case) and a number of the caller's; of several with the same pair the newest is meant. An
// operation that finds none does nothing. Replies arrive on the main queue, which somebody must serve.
#pragma once

#include "xpc/LXPCBase.h"
#include "xpc/LXPCConnectionClient.h"

class LXPCClient : public LXPCBase {
public:
    explicit LXPCClient(LXPCEventNotify* notify) : LXPCBase(notify) {}
    // Ends every connection.
    ~LXPCClient() override;

    // False when nobody serves the name, or it is null, empty or 260 bytes and longer. `machService`: a service of the
    // user's session, else one of the application's bundle.
    bool Connect(const char* serviceName, unsigned long id, bool machService);
    void Disconnect(const char* serviceName, unsigned long id);
    void Suspend(const char* serviceName, unsigned long id);
    void Resume(const char* serviceName, unsigned long id);
    // Sends the items of an array, the last one first: of two with one name the first one counts.
    void SendMessage(const char* serviceName, unsigned long id, const LXPCData* items, unsigned long count,
                     bool withReply);

private:
    LListIterator<LXPCConnection> Find(const char* serviceName, unsigned long id) L_REQUIRES(lock);
};
