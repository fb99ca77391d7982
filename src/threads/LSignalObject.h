// Signal objects: the library's waitable events. A flag that any thread sets, that any number of threads wait for, and
// that stays set until somebody resets it; made of a pipe, so that it can be waited for together with sockets. It is
// set while a byte is unread: Signal adds one, Reset reads all, waits leave them.
//
// Any thread may signal, wait and reset. A Reset beside a Signal may swallow it: reset before the action that leads to
// the next signal. Nothing here allocates.
//
// Time-outs are milliseconds; kSignalNoTimeOut means none.
#pragma once

#include <poll.h>
#include <span>
#include <sys/select.h>

inline constexpr unsigned int kSignalNoTimeOut = 0xFFFFFFFF;

// A view, copied by value; the owner of the descriptors must outlive every use. Waits take descriptors of any number.
class LSignalObjectRef {
public:
    // Waits until one of the set's descriptors, of which `highest` is the highest, can be read; the set then holds
    // those that can. False after the time-out and on failure. A wait that a signal handler interrupted gives true: who
    // must be certain looks again. Not about this object.
    bool Select(int highest, fd_set& readSet, unsigned int timeoutMs) const;

    // Whether the object is set, at once or within the time-out; interruption and failure as in Select. A look at once
    // is never interrupted: it says for certain.
    bool IsSignaled() const { return WaitSignal(0); }
    bool WaitSignal(unsigned int timeoutMs) const;
    // The same for any of two or three objects; doesn't tell which.
    bool WaitSignalDual(LSignalObjectRef second, unsigned int timeoutMs) const;
    bool WaitSignalTriple(LSignalObjectRef second, LSignalObjectRef third, unsigned int timeoutMs) const;

    void Signal();
    void Reset();

    int ReadDescriptor() const { return readDescriptor; }

protected:
    // Both -1: an object that could not be made. Waiting for it fails, signalling does nothing.
    LSignalObjectRef() = default;

    int readDescriptor = -1;
    int writeDescriptor = -1;
};

// Owns the pipe: both ends are non-blocking and close-on-exec. Nothing reports that it could not be made.
class LSignalObject : public LSignalObjectRef {
public:
    LSignalObject();
    ~LSignalObject();
    LSignalObject(const LSignalObject&) = delete;
    LSignalObject& operator=(const LSignalObject&) = delete;
};

// What the waits stand on: until one of the descriptors, of any number, can be read. How many can; 0 after the
// time-out; -1 and errno when the wait was interrupted, or for a descriptor that isn't open.
int LPoll(std::span<pollfd> waited, unsigned int timeoutMs);
inline pollfd LPollFor(LSignalObjectRef object) {
    return {object.ReadDescriptor(), POLLIN, 0};
}

// Reads all that can be read at once from a non-blocking descriptor and forgets it.
void LDrainDescriptor(int descriptor);
