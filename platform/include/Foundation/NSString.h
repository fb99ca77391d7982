// NSString: immutable text, or null. UTF-8 without NUL inside; positions and lengths count bytes (the platform's count
// UTF-16 units; equal for ASCII, and position 0 is position 0).
#pragma once

#include <Foundation/NSPayload.h>

#include <cstddef>
#include <string>
#include <string_view>

using NSStringEncoding = unsigned long;
inline constexpr NSStringEncoding NSUTF8StringEncoding = 4;  // the only one

inline constexpr size_t NSNotFound = ~size_t{0};

struct NSRange {
    size_t location;  // NSNotFound: none
    size_t length;
};

class NSString {
public:
    NSString() = default;  // null
    // Null when `text` is no valid UTF-8 or has a NUL inside.
    explicit NSString(std::string_view text);

    // Null when `text` is null or no valid UTF-8, and for every other encoding.
    static NSString initWithCString(const char* text, NSStringEncoding encoding);

    explicit operator bool() const { return static_cast<bool>(payload); }

    // Null when either is null.
    NSString stringByAppendingString(const NSString& tail) const;
    // The first place where `part` stands. Neither null nor empty text is found anywhere.
    NSRange rangeOfString(const NSString& part) const;
    // False when either is null.
    bool isEqualToString(const NSString& other) const;
    // Copies the text with a terminator. Fails, leaving `buffer` alone, when that takes more than `maxLength` bytes: it
    // never cuts.
    bool getCString(char* buffer, size_t maxLength, NSStringEncoding encoding) const;
    // The text, terminated; "" when null. Lives as long as a copy of this object.
    const char* UTF8String() const;
    std::string_view View() const;

    // Of values: null equals null.
    friend bool operator==(const NSString& a, const NSString& b) {
        return a.payload.IsSame(b.payload) || a.isEqualToString(b);
    }

private:
    NSPayload<std::string> payload;
};
