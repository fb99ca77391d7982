// LThreadNotifyInterface: a thread whose errors, status and progress reach another process interface on the main
// thread, when that serves its events. Reports are asynchronous; of status texts only the latest is kept, so that
// several reports in a row may all deliver it.
//
// A concrete class stops its thread (StopThreadNow) in its destructor, before its own members go.
#pragma once

#include "text/LStringShort.h"
#include "threads/LLockObject.h"
#include "threads/LThread.h"
#include "threads/LThreadRunOnMainThread.h"

class LThreadNotifyInterface : public LThread, public LQueuedNotifyDataHandler {
public:
    // The target is used on the main thread only; it must outlive this object.
    explicit LThreadNotifyInterface(LProcessInterface& mainThreadTarget) : pTarget(&mainThreadTarget) {}
    ~LThreadNotifyInterface() override;

    // Any thread. An error without a text is none: null is not reported.
    void SetError(const char* text) override;
    void SetStatus(const char* text, int level) override;  // levels 0 and 1
    void SetProgress(double fraction) override;            // in whole hundredths, cut
    void SetProgressIndeterminateOn() override;
    void SetProgressIndeterminateOff() override;

    void EvQueuedNotifyData(unsigned int code, const void* bytes, unsigned long length) override;

private:
    enum Code : unsigned int { kError, kStatus0, kStatus1, kProgress, kIndeterminateOn, kIndeterminateOff };

    LProcessInterface* const pTarget;
    LLockObject statusLock;
    char status[2][LTextBufferSize] = {};  // the latest, by level; under statusLock
};
