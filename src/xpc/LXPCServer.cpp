#include "xpc/LXPCServer.h"

void LXPCServer::Start() {
    xpc_main(StaticNewConnectionHandler);
}

void LXPCServer::StaticNewConnectionHandler(xpc_connection_t peer) {
    if (LXPCServerBase* server = pServer) server->NewConnectionHandler(peer);
}
