// ScheduleBook: Quillo's own list of schedules. The helper only starts Quillo; what is due Quillo finds here. Kept in
// one JSON file, replaced as a whole at each change. One thread; of several Quillos, those that change it take turns.
#pragma once

#include "common/NewSchedule.h"

#include <bsd/LDescriptor.h>

#include <ctime>
#include <string>
#include <vector>

namespace tools {

class ScheduleBook {
public:
    explicit ScheduleBook(std::string filePath);

    // Waits for one's turn, which is over when what is given goes. From before Load to after Save: what another Quillo
    // saved between them would be lost. Empty where no turn can be had: then nothing can be saved, either.
    LDescriptor TakeTurn() const;
    // False: there is a file, but it holds no list of schedules; the book is empty then. No file is an empty book.
    bool Load();
    // False (errno says why): the file is as it was.
    bool Save() const;

    // A schedule of the same name is replaced.
    void Put(const NewSchedule& schedule);
    // False: there is none of that name.
    bool Remove(const std::string& name);
    const std::vector<NewSchedule>& Schedules() const { return schedules; }

private:
    std::string path;
    std::vector<NewSchedule> schedules;
};

// The start of `schedule` that is nearest to `now`, in seconds since 1970; for a repeating one found by the local time
// of day. 0 for a weekly one without a day.
time_t NearestStart(const NewSchedule& schedule, time_t now);

// The schedules that a Quillo started at `now` was started for: their start is near. The helper starts Quillo ten
// seconds before; a machine that slept, or was slow, up to a minute late.
std::vector<NewSchedule> DueSchedules(const std::vector<NewSchedule>& schedules, time_t now);

}  // namespace tools
