// LGCDTimer: one schedule in memory: its three names and its running timer sources. An element of the timer list of an
// LGCDScheduler, whose lock guards it. Start time, flags and weekdays are used once, to make the sources; the store
// keeps them.
#pragma once

#include "datetime/LDateTime.h"
#include "datetime/LWeekDay.h"
#include "scheduler/LGCDSource.h"
#include "text/LCopyBounded.h"
#include "text/LList.h"

class LGCDScheduler;

class LGCDTimer {
public:
    // Plans the schedule from the current time and starts its sources. Names are cut to 259 bytes. The caller holds the
    // scheduler's lock until the record is in its list: an event of a source that no record holds is dropped.
    LGCDTimer(const char* appBundleId, const char* appPath, const char* skedName, const LDateTime& start, bool daily,
              bool weekly, const LWeekDay& weekDays, LGCDScheduler* scheduler);
    LGCDTimer(const LGCDTimer&) = delete;
    LGCDTimer& operator=(const LGCDTimer&) = delete;

    bool HasSource(const dispatch_source_s* source) const;
    // Ignoring the case of ASCII letters.
    bool IsOfApp(const char* appBundleId, const char* appPath) const;
    bool IsNamed(const char* appBundleId, const char* appPath, const char* skedName) const;

    LGCDTimer* pNext = nullptr;
    char szAppBundleId[LTextBufferSize];
    char szAppPath[LTextBufferSize];
    char szSkedName[LTextBufferSize];
    bool bOneShot;              // to be deleted after its fire
    LList<LGCDSource> sources;  // none, one, or one per weekday
};
