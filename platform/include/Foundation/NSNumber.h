// NSNumber: an immutable whole number or truth value, or null. It remembers as which of the two it was made, so that a
// property list keeps true apart from 1; the getters convert, as the platform's do.
#pragma once

#include <cstdint>

class NSNumber {
public:
    NSNumber() = default;  // null
    static NSNumber numberWithBool(bool value) { return {Kind::Bool, value ? 1 : 0}; }
    static NSNumber numberWithLong(long value) { return {Kind::Integer, value}; }
    static NSNumber numberWithUnsignedInt(unsigned value) { return {Kind::Integer, static_cast<int64_t>(value)}; }

    explicit operator bool() const { return kind != Kind::None; }
    bool IsBool() const { return kind == Kind::Bool; }

    // 0 or false when null.
    bool boolValue() const { return number != 0; }
    long longValue() const { return number; }
    unsigned unsignedIntValue() const { return static_cast<unsigned>(number); }  // the low 32 bits

    // By value, as the platform's: true equals 1. Null equals null only.
    friend bool operator==(const NSNumber& a, const NSNumber& b) {
        return static_cast<bool>(a) == static_cast<bool>(b) && a.number == b.number;
    }

private:
    enum class Kind : uint8_t { None, Bool, Integer };
    NSNumber(Kind k, int64_t value) : number(value), kind(k) {}

    int64_t number = 0;
    Kind kind = Kind::None;
};
