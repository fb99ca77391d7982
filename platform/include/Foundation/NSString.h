// NSString: immutable text, or null. UTF-8 without NUL inside; positions and lengths count bytes (the platform's count
// UTF-16 units; equal for ASCII, and position 0 is position 0).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

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
    NSString(const NSString& other) : cell(other.cell) {
        if (cell) cell->owners.fetch_add(1, std::memory_order_relaxed);
    }
    NSString(NSString&& other) noexcept : cell(std::exchange(other.cell, nullptr)) {}
    NSString& operator=(NSString other) noexcept {
        std::swap(cell, other.cell);
        return *this;
    }
    ~NSString() {
        if (cell && cell->owners.fetch_sub(1, std::memory_order_acq_rel) == 1) Free();
    }
    // Null when `text` is no valid UTF-8 or has a NUL inside.
    explicit NSString(std::string_view text);

    // Null when `text` is null or no valid UTF-8, and for every other encoding.
    static NSString initWithCString(const char* text, NSStringEncoding encoding);

    explicit operator bool() const { return cell != nullptr; }

    // Null when either is null.
    NSString stringByAppendingString(const NSString& tail) const;
    // The first place where `part` stands. Neither null nor empty text is found anywhere.
    NSRange rangeOfString(const NSString& part) const;
    // False when either is null.
    bool isEqualToString(const NSString& other) const { return cell && other.cell && View() == other.View(); }
    // Copies the text with a terminator. Fails, leaving `buffer` alone, when that takes more than `maxLength` bytes: it
    // never cuts.
    bool getCString(char* buffer, size_t maxLength, NSStringEncoding encoding) const;
    // The text, terminated; "" when null. Lives as long as a copy of this object.
    const char* UTF8String() const { return cell ? cell->Text() : ""; }
    std::string_view View() const { return cell ? std::string_view(cell->Text(), cell->length) : std::string_view(); }

    // Of values: null equals null.
    friend bool operator==(const NSString& a, const NSString& b) { return a.cell == b.cell || a.isEqualToString(b); }

private:
    // Counter, length and text in one piece of memory: whoever walks over ten thousand of them pays for each piece.
    struct Cell {
        std::atomic<uint32_t> owners{1};
        size_t length;

        char* Text() { return reinterpret_cast<char*>(this + 1); }
    };

    static NSString WithLength(size_t length);  // the text is the caller's to fill in
    void Free();

    Cell* cell = nullptr;
};
