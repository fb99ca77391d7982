// Where named services live: a folder of the user's own, nobody else's to enter, with a socket per service and a lock
// file beside it. Folder and socket are checked (owner, mode, no link) and reached through the checked folder's
// descriptor, so that no path is too long and none can be swapped in between. Any thread.
#pragma once

#include "Descriptor.h"

#include <string>
#include <sys/types.h>

namespace platform {

// Connects to a service that one of the user's processes serves; empty when nobody does, the name can't be one, or what
// is there isn't the user's own. Tries the runtime folder of the session, /run/user/<uid> and the folder below /tmp in
// turn.
Descriptor ConnectToService(const std::string& name, pid_t& serverPid);

// A bound, listening socket for a service, and the locked file that keeps others from taking its place.
struct ServiceSocket {
    Descriptor lockFile;
    Descriptor socket;
};

// Binds a service in the first folder that passes the checks; both empty when another process serves it or it can't be
// bound. A stale socket is replaced only under the lock.
ServiceSocket BindService(const std::string& name);

// Binds `name` in the given folder, whose checks are the caller's.
Descriptor BindIn(int folder, const std::string& name);
// Connects to the socket `name` in the given folder if it is the user's own.
Descriptor ConnectIn(int folder, const std::string& name, pid_t& serverPid);

// Accepts one connection without blocking. The descriptor is empty with errno when there is none; a peer of another
// user, or one for which the kernel gives no process, is closed without a word and shows as ECONNABORTED. While few
// descriptors are left, peers are left waiting (EMFILE).
Descriptor AcceptPeer(int listener, pid_t& peerPid);

}  // namespace platform
