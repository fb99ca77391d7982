#include "ScheduleFile.h"

#include "common/ScheduleText.h"

#include <nlohmann/json.hpp>

#include <stdexcept>

namespace tools {

namespace {

using nlohmann::json;

// What isn't there is the default; what is there and of another type is a fault.
template <class T>
T Member(const json& object, const char* key, T otherwise) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) return otherwise;
    try {
        return found->get<T>();
    } catch (const json::exception&) {
        throw std::invalid_argument(std::string("\"") + key + "\" is of the wrong type");
    }
}

// As far as the command line's own times go, in any zone.
time_t StartOf(const json& start, time_t now) {
    constexpr int64_t kFirst = -86'400, kLast = 253'402'387'200;  // the years 1970 to 9999
    if (!start.is_number_integer()) {
        if (!start.is_string()) throw std::invalid_argument("\"start\" is of the wrong type");
        const auto moment = ParseStartTime(start.get<std::string>(), now);
        if (!moment) throw std::invalid_argument("\"start\" is no time");
        return *moment;
    }
    const bool isTooLarge = start.is_number_unsigned() && start.get<uint64_t>() > uint64_t{kLast};
    if (isTooLarge || start.get<int64_t>() < kFirst) throw std::invalid_argument("\"start\" is out of range");
    return start.get<time_t>();
}

FileSchedule FromJson(const json& object, time_t now) {
    if (!object.is_object()) throw std::invalid_argument("it is no object");
    FileSchedule one;
    one.schedule.name = Member<std::string>(object, "name", "");
    one.schedule.daily = Member(object, "daily", false);
    one.schedule.weekly = Member(object, "weekly", false);
    one.application = {Member<std::string>(object, "bundleId", ""), Member<std::string>(object, "application", "")};
    if (const auto days = Member<std::string>(object, "weekdays", ""); !days.empty()) {
        const auto mask = ParseWeekdays(days);
        if (!mask) throw std::invalid_argument("no such weekdays: " + days);
        one.schedule.weekdays = *mask;
        if (!object.contains("weekly") && !object.contains("daily"))
            throw std::invalid_argument("it has \"weekdays\", but neither \"weekly\" nor \"daily\"");
    }
    const auto start = object.find("start");
    if (start == object.end()) throw std::invalid_argument("it has no \"start\"");
    one.schedule.start = StartOf(*start, now);
    return one;
}

}  // namespace

ParsedFile ParseJsonSchedules(const std::string& text, time_t now) {
    ParsedFile parsed;
    json document;
    try {
        document = json::parse(text);
    } catch (const json::parse_error& error) {
        parsed.faults.push_back(std::string("no JSON: ") + error.what());
        return parsed;
    }
    if (document.is_object()) {
        const auto schema = document.find("schema");
        if (schema != document.end() && *schema != 1) {
            parsed.faults.push_back("the file is of schema " + schema->dump(-1, ' ', true) + ", and only 1 is read");
            return parsed;
        }
        json list =
            std::move(document["schedules"]);  // a copy of one that is nested deeply would take all of the stack
        document = std::move(list);
    }
    if (!document.is_array()) {
        parsed.faults.emplace_back("the file holds no list of schedules");
        return parsed;
    }
    for (size_t i = 0; i < document.size(); i++) {
        const std::string where = "schedule " + std::to_string(i + 1);
        try {
            parsed.schedules.push_back(FromJson(document[i], now));
            parsed.schedules.back().where = where;
        } catch (const std::invalid_argument& fault) {
            parsed.faults.push_back(where + ": " + fault.what());
        }
    }
    return parsed;
}

}  // namespace tools
