#include "scheduler/LGCDTimer.h"

#include "scheduler/LGCDScheduler.h"
#include "scheduler/LGCDTimerPlan.h"
#include "text/LAscii.h"

#include <bsd/wallclock.h>

LGCDTimer::LGCDTimer(const char* appBundleId, const char* appPath, const char* skedName, const LDateTime& start,
                     bool daily, bool weekly, const LWeekDay& weekDays, LGCDScheduler* scheduler) {
    LCopyBounded(szAppBundleId, appBundleId, sizeof szAppBundleId);
    LCopyBounded(szAppPath, appPath, sizeof szAppPath);
    LCopyBounded(szSkedName, skedName, sizeof szSkedName);
    const LGCDTimerPlan plan(LDateTime(wallclock_time()), start, daily, weekly, weekDays);
    bOneShot = plan.IsOneShot();
    for (const auto& [delaySeconds, intervalSeconds] : plan.Sources())
        sources.Add(new LGCDSource(LGCDScheduler::CreateTimer(delaySeconds, intervalSeconds, scheduler)));
}

bool LGCDTimer::HasSource(const dispatch_source_s* source) const {
    for (LListIterator<LGCDSource> it(sources); it; it.Next())
        if (it->source == source) return true;
    return false;
}

bool LGCDTimer::IsOfApp(const char* appBundleId, const char* appPath) const {
    return LAsciiCompareNoCase(szAppPath, appPath) == 0 && LAsciiCompareNoCase(szAppBundleId, appBundleId) == 0;
}

bool LGCDTimer::IsNamed(const char* appBundleId, const char* appPath, const char* skedName) const {
    return LAsciiCompareNoCase(szSkedName, skedName) == 0 && IsOfApp(appBundleId, appPath);
}
