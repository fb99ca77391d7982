// LCallbackToken: keeps callbacks off an object that is being destroyed. Whoever registers a callback hands it the
// token's gate (a shared pointer, so that it may outlive everything) and opens each callback with an LCallbackScope:
//
//     handler = [gate = token.Gate(), this] { LCallbackScope scope(gate); if (scope) EvFired(); };
//
// The destructor of the concrete class (not of a base: by then the overrides are gone) calls Close first, holding no
// lock. It returns when no callback runs on another thread any more and none will ever be let in again. A callback may
// itself destroy the object: those on the calling thread are not waited for, and touch nothing of it after they return
// to the handler above. Callbacks nest. Any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

// What a token and the callbacks share.
class LCallbackGate {
public:
    LCallbackGate() = default;
    LCallbackGate(const LCallbackGate&) = delete;
    LCallbackGate& operator=(const LCallbackGate&) = delete;

private:
    friend class LCallbackScope;
    friend class LCallbackToken;

    bool Enter();
    void Leave();
    void Close(unsigned ownScopes);

    static constexpr uint32_t kClosed = 0x8000'0000;

    std::atomic<uint32_t> word{0};  // callbacks that run, and kClosed
};

class LCallbackToken {
public:
    LCallbackToken() = default;
    ~LCallbackToken() { Close(); }
    LCallbackToken(const LCallbackToken&) = delete;
    LCallbackToken& operator=(const LCallbackToken&) = delete;

    std::shared_ptr<LCallbackGate> Gate() const { return gate; }
    // Once closed it stays closed; a second call waits just the same.
    void Close();

private:
    const std::shared_ptr<LCallbackGate> gate = std::make_shared<LCallbackGate>();
};

// One running callback, on the stack of its thread.
class LCallbackScope {
public:
    explicit LCallbackScope(std::shared_ptr<LCallbackGate> callbackGate);
    ~LCallbackScope();
    LCallbackScope(const LCallbackScope&) = delete;
    LCallbackScope& operator=(const LCallbackScope&) = delete;

    // False: the object is gone or going; leave it alone.
    explicit operator bool() const { return entered; }

private:
    friend class LCallbackToken;

    const std::shared_ptr<LCallbackGate> gate;
    const bool entered;
    LCallbackScope* const outer;  // of the same thread, any object's
};
