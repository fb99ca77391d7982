// LDayTime: a time of day as seconds since local midnight, 0 to 86,399 for a valid one. A value; any thread.
#pragma once

#include <compare>
#include <cstdint>

class LDayTime {
public:
    constexpr LDayTime() = default;
    constexpr explicit LDayTime(int32_t secondsSinceMidnight) : seconds(secondsSinceMidnight) {}

    constexpr int32_t Seconds() const { return seconds; }

    friend constexpr auto operator<=>(LDayTime, LDayTime) = default;

private:
    int32_t seconds = 0;
};
