// ObservedScheduler: a scheduler that starts nothing and remembers what it would have started, and when. Starts on one
// thread at a time, as a virtual clock runs them.
#pragma once

#include "Clock.h"
#include "scheduler/LGCDScheduler.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

class ObservedScheduler : public LGCDScheduler {
public:
    using LGCDScheduler::EvScheduleStart;
    ~ObservedScheduler() override { StopCallbacks(); }
    void EvScheduleStart(const char* appBundleId, const char* appPath, const char* skedName) override {
        fires[std::string(appBundleId) + appPath + skedName].push_back(
            static_cast<long>(platform::CurrentClock().WallSeconds()));
        if (onStart) onStart();
    }

    std::map<std::string, std::vector<long>> fires;  // moments by names
    std::function<void()> onStart;
};
