// LWeekDay: a set of weekdays in one byte. Bit n is weekday n as localtime_r numbers them, 0 being Sunday; bit 7 names
// no day. A value; any thread.
#pragma once

#include <cstdint>

class LWeekDay {
public:
    constexpr LWeekDay() = default;
    constexpr explicit LWeekDay(uint8_t days) : mask(days) {}

    constexpr uint8_t Mask() const { return mask; }

    friend constexpr bool operator==(LWeekDay, LWeekDay) = default;

private:
    uint8_t mask = 0;
};

inline constexpr LWeekDay LEveryWeekDay{0x7F};
