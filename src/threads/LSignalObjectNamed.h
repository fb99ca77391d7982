// LSignalObjectNamed: a signal between processes, by a name: a socket "<name>" in the user's data folder. Whoever waits
// has the socket file; a second waiter of that name gets false at once, also after the first was killed, whose file is
// left behind; and signals without a waiter go nowhere. One thread waits, resets and destroys; Signal from any thread.
// Can't be put in a group.
#pragma once

#include <bsd/LDescriptor.h>

#include <sys/un.h>

class LSignalObjectNamed {
public:
    // Opens nothing. A name whose path has more than 103 bytes is refused: its signals go nowhere, its waits fail.
    explicit LSignalObjectNamed(const char* name);
    // Closes the connection of a wait that succeeded, and deletes the file.
    ~LSignalObjectNamed();
    LSignalObjectNamed(const LSignalObjectNamed&) = delete;
    LSignalObjectNamed& operator=(const LSignalObjectNamed&) = delete;

    void Signal() const;
    // True when another party connected within the time-out (milliseconds; kSignalNoTimeOut: none). Then the file stays
    // until destruction, and further waits of this object fail at once; after a wait that failed it is gone. An
    // interrupted wait fails.
    bool WaitSignal(unsigned int timeoutMs);
    // Forgets what the other party sent.
    void Reset();

private:
    sockaddr_un address{};
    LDescriptor connection;
};
