#include "ScheduleStore.h"

#include "Folders.h"
#include "app/LScheduleHelperKeys.h"
#include "text/LCopyBounded.h"

#include <Foundation/Foundation.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace tools {

namespace {

constexpr const char* listKey = "LGCDSCHEDULER_SKED_ALL";
constexpr unsigned weekdayBits = 0x7F;

std::optional<StoredSchedule> FromDictionary(const NSDictionary& entry) {
    const auto value = [&](const char* key) { return entry.valueForKey(NSString(key)); };
    const auto text = [&](const char* key) {
        const NSString found = value(key).String();
        return found.View().size() < LTextBufferSize ? found : NSString();
    };
    const NSString bundleId = text("APP_BUNDLEID");
    const NSString appPath = text("APP_PATH");
    const NSString name = text("SKED_NAME");
    if (!bundleId || !appPath || !name) return {};
    StoredSchedule schedule;
    schedule.bundleId = bundleId.View();
    schedule.appPath = appPath.View();
    schedule.name = name.View();
    schedule.launch = value("START_TIME").Number().longValue();
    schedule.daily = value("IS_DAILY").Number().boolValue();
    schedule.weekly = value("IS_WEEKLY").Number().boolValue();
    schedule.weekdays = static_cast<uint8_t>(value("WEEKDAY_MASK").Number().unsignedIntValue() & weekdayBits);
    return schedule;
}

}  // namespace

time_t StoredSchedule::Start() const {
    time_t start = 0;
    return __builtin_add_overflow(launch, kLaunchLeadSeconds, &start) ? launch : start;
}

std::string StorePath() {
    return UserFolder("XDG_CONFIG_HOME", ".config") + "/com.tarnwick.schedulehelper.plist";
}

std::optional<std::vector<StoredSchedule>> ReadStore(const std::string& path) {
    std::vector<StoredSchedule> schedules;
    if (access(path.c_str(), F_OK) != 0 && errno == ENOENT) return schedules;
    const NSDictionary store = NSDictionary::dictionaryWithContentsOfFile(NSString(path));
    if (!store) return {};
    for (const NSObject& key : store.valueForKey(NSString(listKey)).Array())
        if (auto schedule = FromDictionary(store.valueForKey(key.String()).Dictionary()))
            schedules.push_back(std::move(*schedule));
    return schedules;
}

std::vector<StoredSchedule> SchedulesNamed(const std::vector<StoredSchedule>& schedules, std::string_view name,
                                           std::string_view bundleId, std::string_view appPath) {
    std::vector<StoredSchedule> found;
    for (const StoredSchedule& schedule : schedules)
        if (schedule.name == name && (bundleId.empty() || schedule.bundleId == bundleId) &&
            (appPath.empty() || schedule.appPath == appPath))
            found.push_back(schedule);
    return found;
}

bool IsHelperRunning(const std::string& storePath) {
    const int lock = open((storePath + ".lock").c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (lock < 0) return false;
    const bool held = flock(lock, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    close(lock);
    return held;
}

}  // namespace tools
