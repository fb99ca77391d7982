// Output: how schedulectl speaks, to people or (--json) to programs. Data goes to standard output, errors to standard
// error. Main thread only.
#pragma once

#include "Commands.h"
#include "common/ScheduleStore.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace tools {

class Output {
public:
    explicit Output(bool asJson) : json(asJson) {}

    // One answer: the sentence for people, the members for programs.
    void Answer(const std::string& sentence, const nlohmann::json& members) const;
    void List(const std::vector<StoredSchedule>& schedules) const;
    // Says why, and gives `status` back.
    ExitStatus Error(ExitStatus status, const std::string& sentence) const;
    void Warning(const std::string& sentence) const;

private:
    bool json;
};

// The members that describe one schedule.
nlohmann::json ToJson(const StoredSchedule& schedule);

// Control characters as \xNN: a name must not move a terminal's cursor.
std::string Printable(const std::string& text);

}  // namespace tools
