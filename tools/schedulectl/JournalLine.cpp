#include "JournalLine.h"

#include <nlohmann/json.hpp>

#include <cstdlib>

namespace tools {

namespace {

// A text, or the bytes of one that is no UTF-8; "" for anything else.
std::string TextOf(const nlohmann::json& entry, const char* key) {
    const auto value = entry.find(key);
    if (value == entry.end()) return "";
    if (value->is_string()) return value->get<std::string>();
    std::string bytes;
    if (value->is_array())
        for (const auto& byte : *value)
            if (byte.is_number_integer()) bytes += static_cast<char>(byte.get<int>());
    return bytes;
}

}  // namespace

std::optional<JournalLine> ParseJournalLine(const std::string& line) {
    const auto entry = nlohmann::json::parse(line, nullptr, false);
    if (!entry.is_object()) return {};
    constexpr long kMicroseconds = 1'000'000;
    JournalLine parsed;
    parsed.moment = std::strtol(TextOf(entry, "__REALTIME_TIMESTAMP").c_str(), nullptr, 10) / kMicroseconds;
    parsed.program = TextOf(entry, "SYSLOG_IDENTIFIER");
    parsed.pid = TextOf(entry, "_PID");
    parsed.message = TextOf(entry, "MESSAGE");
    return parsed;
}

}  // namespace tools
