#include "threads/LCallbackToken.h"

#include <dispatch/exit_gate.h>

#include <utility>

namespace {

// The innermost scope of this thread. A handful at most: callbacks inside callbacks.
thread_local LCallbackScope* innermost = nullptr;

}  // namespace

bool LCallbackGate::Enter() {
    LMutexLock lock(mutex);
    if (closed) return false;
    running++;
    return true;
}

void LCallbackGate::Leave() {
    LMutexLock lock(mutex);
    running--;
    if (closed) left.notify_all();
}

void LCallbackGate::Close(unsigned ownScopes) L_NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock lock(mutex.Native());
    closed = true;
    // A callback that sleeps at the exit gate never leaves; waiting for it would keep the process from ending.
    if (dispatch_gate_passed()) return;
    left.wait(lock, [&]() L_NO_THREAD_SAFETY_ANALYSIS { return running <= ownScopes; });
}

void LCallbackToken::Close() {
    unsigned own = 0;
    for (const LCallbackScope* scope = innermost; scope; scope = scope->outer)
        if (scope->entered && scope->gate == gate) own++;
    gate->Close(own);
}

LCallbackScope::LCallbackScope(std::shared_ptr<LCallbackGate> callbackGate)
    : gate(std::move(callbackGate)), entered(gate->Enter()), outer(std::exchange(innermost, this)) {}

LCallbackScope::~LCallbackScope() {
    innermost = outer;
    if (entered) gate->Leave();
}
