// What stands in the helper's store: read from its file, which only the helper writes. Any thread.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

struct StoredSchedule {
    std::string bundleId;
    std::string appPath;
    std::string name;
    time_t launch = 0;  // when the helper starts the application: ten seconds before the start asked for
    bool daily = false;
    bool weekly = false;
    uint8_t weekdays = 0;  // bit n = weekday n, 0 = Sunday

    time_t Start() const;

    friend bool operator==(const StoredSchedule&, const StoredSchedule&) = default;
};

// $XDG_CONFIG_HOME/com.tarnwick.schedulehelper.plist, by default below ~/.config.
std::string StorePath();

// The stored schedules in the order in which they were first added; none for a store that isn't there yet. Nothing when
// there is a file that can't be read as a store. Entries that the helper would skip at its start are skipped.
std::optional<std::vector<StoredSchedule>> ReadStore(const std::string& path);

// The schedules of that name. An empty identifier or path stands for any.
std::vector<StoredSchedule> SchedulesNamed(const std::vector<StoredSchedule>& schedules, std::string_view name,
                                           std::string_view bundleId, std::string_view appPath);

// Whether a helper runs on this store, serving or not: the helper holds a lock beside it for all its life.
bool IsHelperRunning(const std::string& storePath);

}  // namespace tools
