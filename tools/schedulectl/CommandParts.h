// What several commands share. Main thread only.
#pragma once

#include "Commands.h"
#include "Overview.h"
#include "common/HelperClient.h"

#include <optional>
#include <string>
#include <vector>

namespace tools {

// Why there is no helper to talk to, or no answer from it.
ExitStatus Unreachable(const Output& output);
ExitStatus Unanswered(const Output& output);
ExitStatus UnreadableStore(const Output& output);
// The helper took a change that is not in the store: `what` says how it looks there.
ExitStatus NotStored(const Output& output, const std::string& what);

// The application that a request is about. Nothing, and `status` says why, when there is none.
std::optional<Application> ApplicationOf(const Options& options, const Output& output, ExitStatus& status);

// Why the helper can't keep schedules of it, as a sentence for people; "" when it can. Its path is as it will be kept.
std::string ApplicationFault(const Application& application);

// A schedule as the helper will have stored it.
StoredSchedule AsStored(const Application& application, const NewSchedule& schedule);
NewSchedule AsNew(const StoredSchedule& schedule);

// The one stored schedule of that name (and identifier, and path, where the options give them). Nothing, and `status`
// says why, with the nearest name that there is.
std::optional<StoredSchedule> FindNamed(const std::vector<StoredSchedule>& stored, const std::string& name,
                                        const Options& options, const Output& output, ExitStatus& status);

// The name among `names` that was probably meant; "" when none is near.
std::string NearestName(const std::string& wanted, const std::vector<std::string>& names);

}  // namespace tools
