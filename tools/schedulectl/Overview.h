// Overview: the stored schedules with what the running helper will make of each. A snapshot; main thread.
#pragma once

#include "Output.h"
#include "common/BundleState.h"
#include "common/Forecast.h"
#include "common/HelperProcess.h"
#include "common/ScheduleStore.h"

#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tools {

struct ScheduleView {
    StoredSchedule schedule;
    Forecast forecast;
    std::vector<std::string> notes;  // why it starts otherwise than asked for, or not at all
    bool isStarted = false;          // a start comes, and the bundle is one that the helper starts
};

class Overview {
public:
    // What is in the store now. Nothing when there is a file that can't be read as a store.
    static std::optional<Overview> Now();

    // In the order of their starts; those that don't come any more are last.
    const std::vector<ScheduleView>& Schedules() const { return views; }
    const std::optional<HelperProcess>& Helper() const { return helper; }
    time_t Moment() const { return now; }
    // When the helper planned what it had loaded; without one: now, as if it were started.
    time_t Planned() const { return helper && helper->since > 0 ? helper->since : now; }
    const std::map<std::string, BundleState>& Bundles() const { return bundles; }
    // The first that really starts; null when none does.
    const ScheduleView* Next() const;

    // Another schedule as if it were added now.
    ScheduleView View(const StoredSchedule& schedule, time_t planned);

private:
    explicit Overview(time_t moment) : now(moment), helper(FindHelper()) {}

    time_t now;
    std::optional<HelperProcess> helper;
    std::map<std::string, BundleState> bundles;  // by path
    std::vector<ScheduleView> views;
};

// The columns START, LAUNCH, IN, REPEAT, NAME, APPLICATION and, where there is any, NOTE.
std::vector<std::string> ScheduleHeads(const std::vector<ScheduleView>& views);
std::vector<Row> ScheduleRows(const std::vector<ScheduleView>& views, time_t now, bool asRecords);
// The members that describe one schedule.
Record ScheduleRecord(const ScheduleView& view, time_t now);

}  // namespace tools
