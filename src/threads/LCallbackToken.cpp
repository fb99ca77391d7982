#include "threads/LCallbackToken.h"

#include <dispatch/exit_gate.h>

#include <utility>

namespace {

// The innermost scope of this thread. A handful at most: callbacks inside callbacks.
thread_local LCallbackScope* innermost = nullptr;

}  // namespace

bool LCallbackGate::Enter() {
    uint32_t seen = word.load(std::memory_order_relaxed);
    do {
        if (seen & kClosed) return false;
    } while (!word.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire, std::memory_order_relaxed));
    return true;
}

void LCallbackGate::Leave() {
    if (word.fetch_sub(1, std::memory_order_release) & kClosed) word.notify_all();
}

void LCallbackGate::Close(unsigned ownScopes) {
    uint32_t seen = word.fetch_or(kClosed, std::memory_order_acquire) | kClosed;
    // A callback that sleeps at the exit gate never leaves; waiting for it would keep the process from ending.
    if (dispatch_gate_passed()) return;
    for (; (seen & ~kClosed) > ownScopes; seen = word.load(std::memory_order_acquire))
        word.wait(seen, std::memory_order_acquire);
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
