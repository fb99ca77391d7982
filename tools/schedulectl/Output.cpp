#include "Output.h"

#include "common/ScheduleText.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tools {

namespace {

std::string RepeatText(const StoredSchedule& schedule) {
    if (schedule.daily) return "daily";
    if (!schedule.weekly) return "once";
    return schedule.weekdays == 0 ? "never" : WeekdayText(schedule.weekdays);
}

// Columns on a terminal, a character each: the bytes that begin one.
size_t Width(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

void PrintLine(FILE* stream, const std::string& line) {
    std::fwrite(line.data(), 1, line.size(), stream);
    std::fputc('\n', stream);
}

}  // namespace

void Output::Answer(const std::string& sentence, const nlohmann::json& members) const {
    PrintLine(stdout, json ? members.dump() : Printable(sentence));
}

void Output::List(const std::vector<StoredSchedule>& schedules) const {
    if (json) {
        nlohmann::json list = nlohmann::json::array();
        for (const StoredSchedule& schedule : schedules) list.push_back(ToJson(schedule));
        PrintLine(stdout, nlohmann::json{{"schedules", list}}.dump());
        return;
    }
    using Row = std::array<std::string, 5>;
    std::vector<Row> rows = {{"NAME", "REPEAT", "START", "LAUNCH", "APPLICATION"}};
    for (const StoredSchedule& schedule : schedules)
        rows.push_back({Printable(schedule.name), RepeatText(schedule), LocalTimeText(schedule.Start()),
                        LocalTimeText(schedule.launch), Printable(schedule.appPath)});
    std::array<size_t, 5> widths{};
    for (const Row& row : rows)
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
    for (const Row& row : rows) {
        std::string line;
        for (size_t i = 0; i + 1 < row.size(); ++i) line += row[i] + std::string(widths[i] - Width(row[i]) + 2, ' ');
        PrintLine(stdout, line + row.back());
    }
}

ExitStatus Output::Error(ExitStatus status, const std::string& sentence) const {
    PrintLine(stderr, json ? nlohmann::json{{"error", sentence}, {"status", static_cast<int>(status)}}.dump()
                           : "schedulectl: " + Printable(sentence));
    return status;
}

void Output::Warning(const std::string& sentence) const {
    PrintLine(stderr, json ? nlohmann::json{{"warning", sentence}}.dump() : "schedulectl: " + Printable(sentence));
}

nlohmann::json ToJson(const StoredSchedule& schedule) {
    return {{"name", schedule.name},
            {"bundleId", schedule.bundleId},
            {"application", schedule.appPath},
            {"start", schedule.Start()},
            {"launch", schedule.launch},
            {"daily", schedule.daily},
            {"weekly", schedule.weekly},
            {"weekdays", WeekdayText(schedule.weekdays)},
            {"startText", LocalTimeText(schedule.Start())}};
}

std::string Printable(const std::string& text) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string printable;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F) {
            printable += c;
        } else {
            printable += "\\x";
            printable += digits[byte >> 4];
            printable += digits[byte & 0xF];
        }
    }
    return printable;
}

}  // namespace tools
