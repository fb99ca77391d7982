// LGCDScheduler: keeps schedules, in the application's defaults and as running timers, and reports each start through
// EvScheduleStart. A schedule is named by the application that is to be started (bundle identifier and path) and its
// own name. Abstract; the concrete class decides what a start does.
//
// Store: the defaults key "LGCDSCHEDULER_SKED_ALL" lists the keys of all schedules in the order of their adding; each
// is "LGCDSCHEDULER_" + identifier + path + name, without separators, and holds a dictionary with the entries
// "APP_BUNDLEID", "APP_PATH", "SKED_NAME" (texts), "START_TIME" (seconds), "IS_DAILY", "IS_WEEKLY" (truth values) and
// "WEEKDAY_MASK". A one-time schedule that has fired leaves memory but not the store: whoever added it deletes it.
//
// Threads: Add, Delete, DeleteAll, LoadFromSettings, HasTimers: any thread. Starts come on threads of the global queue,
// several may run side by side. Two mutexes, taken in this order:
//
//     operations  the store and `keys`; held through the synchronisation, so that operations follow each other whole
//     records     `timers`; never held across a blocking call. A fire takes this one only: none waits for a disk.
//
// EvScheduleStart runs under neither. It may add and delete schedules, also the one that fires; it must not destroy the
// scheduler. The destructor of the concrete class calls StopCallbacks before anything else.
#pragma once

#include "datetime/LDateTime.h"
#include "datetime/LWeekDay.h"
#include "scheduler/LGCDTimer.h"
#include "text/LList.h"
#include "threads/LCallbackToken.h"

#include <Foundation/Foundation.h>
#include <bsd/LMutex.h>
#include <dispatch/dispatch.h>

class LGCDScheduler {
public:
    LGCDScheduler() = default;
    // Cancels all timers; the store is left as it is.
    virtual ~LGCDScheduler();
    // A schedule's time has come.
    virtual void EvScheduleStart(const char* appBundleId, const char* appPath, const char* skedName) = 0;
    LGCDScheduler(const LGCDScheduler&) = delete;
    LGCDScheduler& operator=(const LGCDScheduler&) = delete;

    // Names longer than 259 bytes are cut at a character, the same way everywhere. A request with a null name, one that
    // is no UTF-8, or one whose key would be that of the list is ignored. Failures of the store are not reported to the
    // caller: the next change tries again.

    // Adds a schedule, in the place of one of the same names.
    void Add(const char* appBundleId, const char* appPath, const char* skedName, const LDateTime& start, bool daily,
             bool weekly, const LWeekDay& weekDays);
    // In the store the names match exactly, in memory the first record that equals them ignoring ASCII case goes.
    void Delete(const char* appBundleId, const char* appPath, const char* skedName);
    // Drops all schedules of an application: in memory those whose identifier and path match ignoring ASCII case, in
    // the store every key that begins with the two. So /A/X.app takes stored ones of /A/X.app2 along.
    void DeleteAll(const char* appBundleId, const char* appPath);
    // Builds all timers anew from the store, planned from the current time. The dictionary of a schedule whose
    // application does not exist is removed; its key stays listed.
    void LoadFromSettings();

    // Whether any schedule is in memory, with a source or without.
    bool HasTimers() const;

    // A running source that reports to the scheduler: first after `delay` seconds, then every `interval` (0: once).
    // The caller owns it. Events that come when the scheduler is going are dropped.
    static dispatch_source_t CreateTimer(long delay, long interval, LGCDScheduler* scheduler);
    // A source has fired: reports the start of the schedule that owns it, and drops that if it was a one-time one.
    void EvScheduleStart(dispatch_source_s* source) L_EXCLUDES(records);

protected:
    // Returns when no callback runs on another thread any more and none will start.
    void StopCallbacks() { callbacks.Close(); }

private:
    struct Names;
    struct LoadState;

    void _LoadFromSettings() L_REQUIRES(operations);
    void _LoadTimer(const NSObject& key, LoadState& state) L_REQUIRES(operations);
    void _AddTimer(const Names& names, const LDateTime& start, bool daily, bool weekly, LWeekDay weekDays)
        L_EXCLUDES(records);
    void _DeleteTimer(const Names& names) L_EXCLUDES(records);
    void _Synchronize() L_REQUIRES(operations);

    LMutex operations;
    NSMutableArray keys L_GUARDED_BY(operations);  // as stored under the list's key
    bool bStoreInDoubt L_GUARDED_BY(operations) = false;

    mutable LMutex records;
    LList<LGCDTimer> timers L_GUARDED_BY(records);  // newest first

    LCallbackToken callbacks;
};
