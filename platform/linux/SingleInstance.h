// SingleInstance: at most one process of an application works on its defaults store. The lock is a file beside the
// store, so that instances of a session, of cron and of a terminal meet at it whatever their environment; the socket by
// which a second instance asks the running one to reopen lies there, too.
#pragma once

#include "Descriptor.h"

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace platform {

class SingleInstance {
public:
    // `store`: the path of the defaults store; its folder is made when missing.
    explicit SingleInstance(const std::string& store);

    enum class Outcome {
        Alone,        // this process holds the lock, for its life
        HandedOver,   // another one runs and acknowledged the request to reopen
        Unanswered,   // another one holds the lock and did not answer in time
        Unavailable,  // the lock file can't be had (errno)
    };
    // Takes the lock, or asks who holds it to reopen; whichever works first within timeoutMs.
    Outcome Claim(uint32_t timeoutMs);
    // Asks who holds the lock to reopen. True: it has been launched, and answered within timeoutMs. False comes sooner
    // when nobody listens, or who did has ended: look at the lock again.
    bool AskToReopen(uint32_t timeoutMs) const;

    // After Alone: the listening socket for requests to reopen; may be empty (errno).
    Descriptor ListenForReopen() const;
    // One waiting request; empty (errno) when there is none.
    static Descriptor TakeReopenRequest(int listener);
    static void Acknowledge(const Descriptor& asker);

private:
    bool TryLock();

    std::string name;  // of the store, in `folder`
    Descriptor folder;
    Descriptor lockFile;
};

}  // namespace platform
