// LXPCServerBase: what the two kinds of XPC servers share: peers and their acceptance.
#pragma once

#include "xpc/LXPCBase.h"

#include <atomic>

class LXPCServerBase : public LXPCBase {
public:
    // Ends every connection.
    ~LXPCServerBase() override;

    // Takes a peer in. With peer checking, one whose process number lies outside 1 to 99,999 is refused: it is not
    // kept, so the platform closes it, and the sink hears of it.
    void NewConnectionHandler(xpc_connection_t peer);
    // Ends one connection; nothing happens when the identifier names none.
    void Disconnect(long connection);

    // The most recently constructed server, null once any server was destroyed: for the embedded server's callback,
    // which carries no context.
    static std::atomic<LXPCServerBase*> pServer;

protected:
    LXPCServerBase(LXPCServerEventNotify* notify, bool checkPeer);

    LXPCServerEventNotify* const pServerNotify;
    const bool bCheckPeer;
};
