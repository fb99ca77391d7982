// Recording: what Quillo does when it is started without a command: finds its due work, "records" for a while, and
// keeps a log of it. One thread.
#pragma once

#include <string>

namespace tools {

// Quillo's own folder, $XDG_DATA_HOME/Quillo, made on first use.
std::string DataFolder();

// Where Quillo keeps its list of schedules.
std::string ScheduleBookPath();

// Gives the program's exit status. Each line goes to standard output and to recordings.log in the data folder. Takes as
// many seconds as the environment's QUILLO_RECORD_SECONDS says, 3 by default; SIGTERM and SIGINT, which must be
// blocked, end it early.
int Record();

}  // namespace tools
