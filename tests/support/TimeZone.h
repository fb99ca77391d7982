// TimeZone: the process's local time zone for one test; the old one comes back at the end.
#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

class TimeZone {
public:
    explicit TimeZone(const char* name) {
        if (const char* old = std::getenv("TZ")) before = old;
        Set(name);
    }
    ~TimeZone() { Set(before ? before->c_str() : nullptr); }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    static void Set(const char* name) {
        if (name)
            ::setenv("TZ", name, 1);
        else
            ::unsetenv("TZ");
        ::tzset();
    }

    std::optional<std::string> before;
};
