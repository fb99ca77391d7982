// ExitGate: the inside of dispatch/exit_gate.h. One word counts the threads that run handlers and says whether the gate
// is closed; each thread knows how deep it is inside.
#pragma once

namespace platform {

// Enters the gate for a scope. When the gate is closed the thread sleeps for ever instead. Nests.
class ExitGatePassage {
public:
    ExitGatePassage();
    ~ExitGatePassage();
    ExitGatePassage(const ExitGatePassage&) = delete;
    ExitGatePassage& operator=(const ExitGatePassage&) = delete;
};

// Leaves the gate for good from any depth: for a handler that turns into a loop and never returns.
void LeaveExitGateForGood();

}  // namespace platform
