// One entry of the system's journal, as `journalctl --output=json` prints it. Any thread.
#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace tools {

struct JournalLine {
    time_t moment = 0;
    std::string program;
    std::string pid;
    std::string message;
};

// Nothing for a line that is no entry.
std::optional<JournalLine> ParseJournalLine(const std::string& line);

}  // namespace tools
