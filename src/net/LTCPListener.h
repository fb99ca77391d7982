// LTCPListener: a thread that listens on a port of all local IPv4 addresses and hands each connection to its subclass,
// one after the other. A port that can't be had is tried again every 30 seconds, as is one whose accepting fails. Stops
// at once when it is asked to; a concrete class calls StopThreadNow in its destructor.
#pragma once

#include "net/LIPSocket.h"
#include "threads/LThread.h"

class LTCPListener : public LThread {
public:
    explicit LTCPListener(uint16_t listenPort) : port(listenPort) {}

    void ThreadFunction() override;
    // On the listener's thread. The connection is closed afterwards, unless its descriptor was taken.
    virtual void EvConnectionAccepted(LIPSocketTCP& connection) = 0;

private:
    void AcceptConnections();

    const uint16_t port;
};
