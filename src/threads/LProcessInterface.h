// LProcessInterface: what every long operation is handed. It says whether to stop, waits so that a request to stop cuts
// the wait short, and takes errors, status and progress. Operations are functions `Process...(LProcessInterface&, ...)`
// and don't know whether they run on a thread, on the main thread, as a step of another one, or unwatched. Used by the
// one thread that runs the operation; deleted through its own class only.
#pragma once

#include "threads/LSignalObjectGroup.h"

// What a wait gives.
enum LWaitResult { waitSet = 0, waitStopped = 1, waitTimedOut = 2 };  // the last one for waits that failed, too
// What an operation gives. The reason for a failure, if it is told, went to SetError.
enum LProcessResult { processDone = 0, processStopped = 1, processFailed = 2 };

class LProcessInterface {
public:
    virtual bool IsToStop() = 0;
    // Waits a time; true when a request to stop ended it.
    virtual bool ProcessWait(unsigned int milliseconds) = 0;
    // Wait for an object, or any one of a group; kSignalNoTimeOut means no time-out. An LWaitResult.
    virtual int ProcessWaitSignal(LSignalObjectRef object, unsigned int timeoutMs) = 0;
    virtual int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int timeoutMs) = 0;
    virtual void SetError(const char*) {}
    // Level 0 is the main line, higher levels are finer detail.
    virtual void SetStatus(const char*, int) {}
    virtual void SetProgress(double) {}  // 0.0 to 1.0
    virtual void SetProgressIndeterminateOn() {}
    virtual void SetProgressIndeterminateOff() {}

    // The same with texts of the system's format language, cut at 8,191 bytes. A null format prints nothing.
    void SetErrorF(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void SetStatusF(int level, const char* format, ...) __attribute__((format(printf, 3, 4)));

protected:
    ~LProcessInterface() = default;
};

// Nobody watches and nobody stops it.
class LProcessInterfaceVoid : public LProcessInterface {
public:
    virtual ~LProcessInterfaceVoid() = default;
    bool IsToStop() override { return false; }
    bool ProcessWait(unsigned int milliseconds) override;  // 0xFFFFFFFF: 49.7 days
    int ProcessWaitSignal(LSignalObjectRef object, unsigned int timeoutMs) override;
    int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int timeoutMs) override;
};

// Stops, waits and fails with its parent, which must outlive it.
class LProcessInterfaceNested : public LProcessInterface {
public:
    explicit LProcessInterfaceNested(LProcessInterface& parent) : pParent(&parent) {}
    virtual ~LProcessInterfaceNested() = default;

    bool IsToStop() override { return pParent->IsToStop(); }
    bool ProcessWait(unsigned int milliseconds) override { return pParent->ProcessWait(milliseconds); }
    int ProcessWaitSignal(LSignalObjectRef object, unsigned int timeoutMs) override {
        return pParent->ProcessWaitSignal(object, timeoutMs);
    }
    int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int timeoutMs) override {
        return pParent->ProcessWaitSignalObjectGroup(group, timeoutMs);
    }
    void SetError(const char* text) override { pParent->SetError(text); }

protected:
    LProcessInterface* const pParent;
};

// A step of its parent: its progress from 0 to 1 is the parent's from `start` to start + span, its status lines are one
// level finer, and it can't make the parent's bar indeterminate.
class LProcessInterfaceSubProcess : public LProcessInterfaceNested {
public:
    LProcessInterfaceSubProcess(LProcessInterface& parent, double start, double span)
        : LProcessInterfaceNested(parent), progressStart(start), progressSpan(span) {}

    void SetStatus(const char* text, int level) override { pParent->SetStatus(text, level + 1); }
    void SetProgress(double fraction) override { pParent->SetProgress(progressSpan * fraction + progressStart); }
    void SetProgressIndeterminateOn() override {}
    void SetProgressIndeterminateOff() override {}

private:
    const double progressStart;
    const double progressSpan;
};
