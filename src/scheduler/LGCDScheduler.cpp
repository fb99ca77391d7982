#include "scheduler/LGCDScheduler.h"

#include <ctime>
#include <limits>
#include <string_view>

namespace {

struct StoreKeys {
    const NSString prefix{"LGCDSCHEDULER_"};
    const NSString all{"LGCDSCHEDULER_SKED_ALL"};
    const NSString appBundleId{"APP_BUNDLEID"};
    const NSString appPath{"APP_PATH"};
    const NSString skedName{"SKED_NAME"};
    const NSString startTime{"START_TIME"};
    const NSString isDaily{"IS_DAILY"};
    const NSString isWeekly{"IS_WEEKLY"};
    const NSString weekDayMask{"WEEKDAY_MASK"};
};

const StoreKeys& Keys() {
    static const StoreKeys& keys = *new StoreKeys;  // timers may fire while statics are being destroyed
    return keys;
}

// Reading back takes at most 259 bytes of a name, so no longer one may be stored. Null where the text is null or no
// UTF-8.
NSString NameFrom(const char* text) {
    if (!text) return {};
    std::string_view name(text);
    if (name.size() >= LTextBufferSize) {
        size_t length = LTextBufferSize - 1;
        while (length > 0 && (static_cast<unsigned char>(name[length]) & 0xC0) == 0x80) length--;
        name = name.substr(0, length);
    }
    return NSString(name);
}

NSUserDefaults& Defaults() {
    return NSUserDefaults::standardUserDefaults();
}

// Local fields are those of the zone that the machine is in now: localtime_r by itself keeps the one of its first use,
// and a weekly schedule of a traveller could come a day late. Under the lock for operations: the C library guards its
// zone by a lock that race detectors don't see.
void FollowZone() {
    ::tzset();
}

int64_t Nanoseconds(long seconds) {
    int64_t result;
    if (!__builtin_mul_overflow(int64_t{seconds}, int64_t{1'000'000'000}, &result)) return result;
    return std::numeric_limits<int64_t>::max();  // 292 years, which is never
}

}  // namespace

struct LGCDScheduler::Names {
    NSString appBundleId, appPath, skedName;

    Names(const char* bundleId, const char* path, const char* name)
        : appBundleId(NameFrom(bundleId)), appPath(NameFrom(path)), skedName(NameFrom(name)) {}

    // Null when a name is, and where the key would be the list's own: storing under that would lose every schedule.
    NSString Key() const {
        const NSString key = AppKey().stringByAppendingString(skedName);
        return key == Keys().all ? NSString() : key;
    }
    NSString AppKey() const {
        return Keys().prefix.stringByAppendingString(appBundleId).stringByAppendingString(appPath);
    }
};

// What one reload remembers from schedule to schedule: most have the same application, which need not be looked for
// again.
struct LGCDScheduler::LoadState {
    bool bStoreChanged = false;
    NSString lastPath;
    bool bLastExists = false;

    bool PathExists(const NSString& path) {
        if (!(path == lastPath)) {
            lastPath = path;
            bLastExists = NSFileManager::defaultManager().fileExistsAtPath(path);
        }
        return bLastExists;
    }
};

LGCDScheduler::~LGCDScheduler() {
    LMutexLock lock(records);
    timers.Clear();
}

void LGCDScheduler::Add(const char* appBundleId, const char* appPath, const char* skedName, const LDateTime& start,
                        bool daily, bool weekly, const LWeekDay& weekDays) {
    const Names names(appBundleId, appPath, skedName);
    const NSString key = names.Key();
    if (!key) return;
    NSMutableDictionary schedule = NSMutableDictionary::initWithCapacity(7);
    schedule.setValueForKey(names.appBundleId, Keys().appBundleId);
    schedule.setValueForKey(names.appPath, Keys().appPath);
    schedule.setValueForKey(names.skedName, Keys().skedName);
    schedule.setValueForKey(NSNumber::numberWithLong(start.Seconds()), Keys().startTime);
    schedule.setValueForKey(NSNumber::numberWithBool(daily), Keys().isDaily);
    schedule.setValueForKey(NSNumber::numberWithBool(weekly), Keys().isWeekly);
    schedule.setValueForKey(NSNumber::numberWithUnsignedInt(weekDays.Mask()), Keys().weekDayMask);

    LMutexLock lock(operations);
    FollowZone();
    // As a deletion and an addition, but with one write: a crash between two would lose a schedule that is only
    // replaced. So a replaced one goes to the end of the list, too.
    keys.removeObject(key);
    keys.addObject(key);
    _DeleteTimer(names);
    _AddTimer(names, start, daily, weekly, weekDays);
    Defaults().setObjectForKey(schedule, key);
    Defaults().setObjectForKey(keys, Keys().all);
    _Synchronize();
}

void LGCDScheduler::Delete(const char* appBundleId, const char* appPath, const char* skedName) {
    const Names names(appBundleId, appPath, skedName);
    const NSString key = names.Key();
    if (!key) return;
    LMutexLock lock(operations);
    if (keys.containsObject(key)) {
        keys.removeObject(key);
        Defaults().setObjectForKey(keys, Keys().all);
    }
    Defaults().removeObjectForKey(key);
    _Synchronize();
    _DeleteTimer(names);
}

void LGCDScheduler::DeleteAll(const char* appBundleId, const char* appPath) {
    const Names names(appBundleId, appPath, "");
    const NSString prefix = names.AppKey();
    if (!prefix) return;
    LMutexLock lock(operations);
    NSMutableArray kept;
    for (const NSObject& key : keys) {
        if (key.String().rangeOfString(prefix).location == 0)
            Defaults().removeObjectForKey(key.String());
        else
            kept.addObject(key);
    }
    const bool bRemoved = kept.count() != keys.count();
    if (bRemoved) {
        keys = kept;
        Defaults().setObjectForKey(keys, Keys().all);
    }
    // A deletion that could not be stored is tried again, though nothing is left to delete.
    if (bRemoved || bStoreInDoubt) _Synchronize();

    LMutexLock recordsLock(records);
    LList<LGCDTimer> others;  // in reverse; taking only heads off keeps this linear
    for (LListIterator<LGCDTimer> it(timers); it;) {
        if (it->IsOfApp(names.appBundleId.UTF8String(), names.appPath.UTF8String()))
            timers.Delete(it);
        else
            others.Add(timers.Detach(it));
    }
    for (LListIterator<LGCDTimer> it(others); it;) timers.Add(others.Detach(it));
}

void LGCDScheduler::LoadFromSettings() {
    LMutexLock lock(operations);
    // Nothing to write as yet, but a store that could not be read at the program's start is tried again.
    bStoreInDoubt = !Defaults().synchronize();
    _LoadFromSettings();
}

void LGCDScheduler::_LoadFromSettings() {
    {
        LMutexLock lock(records);
        timers.Clear();
    }
    keys.removeAllObjects();
    const NSArray stored = Defaults().objectForKey(Keys().all).Array();
    if (!stored) return;
    keys.addObjectsFromArray(stored);
    LoadState state;
    FollowZone();
    for (const NSObject& key : stored) _LoadTimer(key, state);
    if (state.bStoreChanged) Defaults().synchronize();
}

// One schedule of the list. Whatever is missing or of another type than it should be makes the schedule one to skip (a
// name) or reads as 0: the store may have been edited by anybody.
void LGCDScheduler::_LoadTimer(const NSObject& key, LoadState& state) {
    const NSDictionary schedule = Defaults().objectForKey(key.String()).Dictionary();
    char appBundleId[LTextBufferSize], appPath[LTextBufferSize], skedName[LTextBufferSize];
    const auto getText = [&](const NSString& entry, char* buffer) {
        return schedule.valueForKey(entry).String().getCString(buffer, LTextBufferSize, NSUTF8StringEncoding);
    };
    if (!getText(Keys().appBundleId, appBundleId) || !getText(Keys().appPath, appPath) ||
        !getText(Keys().skedName, skedName))
        return;

    const NSString path = schedule.valueForKey(Keys().appPath).String();
    if (!state.PathExists(path)) {
        Defaults().removeObjectForKey(Names(appBundleId, appPath, skedName).Key());
        state.bStoreChanged = true;
        return;
    }
    const auto number = [&](const NSString& entry) { return schedule.valueForKey(entry).Number(); };
    const LWeekDay weekDays(static_cast<uint8_t>(number(Keys().weekDayMask).unsignedIntValue() & LEveryWeekDay.Mask()));
    LMutexLock lock(records);
    timers.Add(new LGCDTimer(appBundleId, appPath, skedName, LDateTime(number(Keys().startTime).longValue()),
                             number(Keys().isDaily).boolValue(), number(Keys().isWeekly).boolValue(), weekDays, this));
}

// Building the record under the lock lets a fire that comes at once wait until the record can be found.
void LGCDScheduler::_AddTimer(const Names& names, const LDateTime& start, bool daily, bool weekly, LWeekDay weekDays) {
    LMutexLock lock(records);
    timers.Add(new LGCDTimer(names.appBundleId.UTF8String(), names.appPath.UTF8String(), names.skedName.UTF8String(),
                             start, daily, weekly, weekDays, this));
}

void LGCDScheduler::_DeleteTimer(const Names& names) {
    LMutexLock lock(records);
    for (LListIterator<LGCDTimer> it(timers); it; it.Next()) {
        if (!it->IsNamed(names.appBundleId.UTF8String(), names.appPath.UTF8String(), names.skedName.UTF8String()))
            continue;
        timers.Delete(it);
        return;
    }
}

// A store that could not be read before may have been read now, and merged: then it holds schedules that have no timers
// yet.
void LGCDScheduler::_Synchronize() {
    const bool bWasInDoubt = bStoreInDoubt;
    bStoreInDoubt = !Defaults().synchronize();
    if (bWasInDoubt && !bStoreInDoubt && Defaults().objectForKey(Keys().all).Array() != keys) _LoadFromSettings();
}

bool LGCDScheduler::HasTimers() const {
    LMutexLock lock(records);
    return !timers.IsEmpty();
}

dispatch_source_t LGCDScheduler::CreateTimer(long delay, long interval, LGCDScheduler* scheduler) {
    const dispatch_queue_t queue = dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0);
    const dispatch_source_t source = dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, queue);
    dispatch_source_set_timer(source, dispatch_time(DISPATCH_TIME_NOW, Nanoseconds(delay)),
                              interval > 0 ? static_cast<uint64_t>(Nanoseconds(interval)) : DISPATCH_TIME_FOREVER, 0);
    // The source lives while its handler runs, so its address names no other one then.
    dispatch_source_set_event_handler(source, [gate = scheduler->callbacks.Gate(), scheduler, source] {
        const LCallbackScope scope(gate);
        if (scope) scheduler->EvScheduleStart(source);
    });
    dispatch_resume(source);
    return source;
}

// The record is copied, not kept, over the callback, and looked up again after it: the callback or another thread may
// have deleted it, or put another in its place.
void LGCDScheduler::EvScheduleStart(dispatch_source_s* source) {
    const auto find = [&]() L_REQUIRES(records) {
        LListIterator<LGCDTimer> it(timers);
        while (it && !it->HasSource(source)) it.Next();
        return it;
    };
    char appBundleId[LTextBufferSize], appPath[LTextBufferSize], skedName[LTextBufferSize];
    {
        LMutexLock lock(records);
        const auto it = find();
        if (!it) return;
        LCopyBounded(appBundleId, it->szAppBundleId, sizeof appBundleId);
        LCopyBounded(appPath, it->szAppPath, sizeof appPath);
        LCopyBounded(skedName, it->szSkedName, sizeof skedName);
    }
    EvScheduleStart(appBundleId, appPath, skedName);
    LMutexLock lock(records);
    if (auto it = find(); it && it->bOneShot) timers.Delete(it);
}
