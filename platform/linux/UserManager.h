// The user's service manager (systemd), where one runs: gives an application that was started a scope of its own, so
// that limits, ends and accounts of whoever started it are not the application's.
//
// A scope, not a transient service: the manager adopts a process that runs already. It was started as where there is no
// manager, with this process's environment, and whatever the manager or the bus to it does, it runs.
//
// The library that talks to the bus is loaded when it is needed first. Linked, it would take 0.85 MB, and 2 ms of each
// start, of a helper that mostly waits.
#pragma once

#include "ChildProcess.h"

#include <memory>
#include <string>

namespace platform {

// Asks for the scope of an application that was just started from `bundle`, and returns at once: the bus is spoken to
// by a thread of the pool, outside the exit gate, for half a second at most. Does nothing where the environment leads
// to no bus or nobody on it is the manager; reports any other failure. Reads the environment on the calling thread. Any
// thread.
void AskForScope(std::shared_ptr<ChildProcess> application, const std::string& bundle);

// Test seam: how long the bus and the manager may take.
void SetUserManagerPatience(uint32_t ms);

}  // namespace platform
