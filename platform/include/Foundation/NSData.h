// NSData: immutable bytes, or null.
#pragma once

#include <Foundation/NSPayload.h>

#include <cstddef>
#include <string>
#include <string_view>

class NSData {
public:
    NSData() = default;  // null
    static NSData dataWithBytes(const void* bytes, size_t length);

    explicit operator bool() const { return static_cast<bool>(payload); }
    const void* bytes() const { return payload ? payload.Get()->data() : nullptr; }
    size_t length() const { return payload ? payload.Get()->size() : 0; }
    std::string_view View() const { return payload ? std::string_view(*payload.Get()) : std::string_view(); }

    friend bool operator==(const NSData& a, const NSData& b) {
        return static_cast<bool>(a) == static_cast<bool>(b) && a.View() == b.View();
    }

private:
    NSPayload<std::string> payload;
};
